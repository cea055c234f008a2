// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/Container.h"
#include "AudioToolbox/Containers/ContainerFile.h"

namespace qmx
{

/// A container whose audio data are the rest of the file after a header, or the whole file.
class FlatContainer : public Container
{
public:
    UInt64 byteCount() const override { return bytes_ - bytes_ % format_.mBytesPerFrame; }
    SInt64 dataOffset() const override { return static_cast<SInt64>(start_); }
    bool isOptimized() const override { return true; }
    std::vector<UInt32> chunkIDs() override { return {}; }
    OSStatus readBytes(UInt64 start, UInt32& count, void* buffer) override;
    OSStatus writeBytes(UInt64 start, UInt32& count, const void* buffer) override;
    OSStatus finish() override;

protected:
    explicit FlatContainer(std::unique_ptr<File> file) : file_(std::move(file)) {}

    /// Writes the number of audio bytes into the header, if it states that. Called after each block that is added.
    virtual OSStatus writeSize(UInt64) { return noErr; }
    /// `limit`: bytes that the header states; those after them are not audio.
    void setAudio(UInt64 start, UInt64 limit);
    /// What a killed writer stored after the bytes that the header states is audio too.
    void takeRest();

    ContainerFile file_;

private:
    UInt64 start_ = 0, bytes_ = 0;
    UInt64 unwrittenBytes_ = 0; ///< added since the header was written
};

} // namespace qmx
