// SPDX-License-Identifier: MIT
// The common part of extended audio files in both directions: an audio file, a client format, and a converter between.
#pragma once

#include "AudioToolbox/Conversion/PcmLayout.h"
#include "AudioToolbox/ExtAudioFile.h"
#include "AudioToolbox/Extended/IOBuffer.h"

#include <memory>
#include <vector>

namespace qmx
{

using ConverterHandle = std::unique_ptr<OpaqueAudioConverter, decltype(&AudioConverterDispose)>;

/// A channel layout with all its descriptions; empty for none.
using LayoutBlock = std::vector<std::byte>;

/// One thread at a time, except for what ExtAudioFile.h says of real-time threads.
class ExtendedFile
{
public:
    virtual ~ExtendedFile();
    ExtendedFile(const ExtendedFile&) = delete;
    ExtendedFile& operator=(const ExtendedFile&) = delete;

    AudioFileID file() const { return file_; }
    /// Closes the audio file when this one is closed.
    void ownFile() { owns_ = true; }
    const AudioStreamBasicDescription& fileFormat() const { return fileFormat_; }
    /// All zero while there is none.
    const AudioStreamBasicDescription& clientFormat() const { return clientFormat_; }

    /// Sets another client format with a new converter; on failure the old ones stay.
    OSStatus setClientFormat(const AudioStreamBasicDescription& format);
    /// Null without a client format. Nothing uses it until the next transfer.
    AudioConverterRef converter();
    /// The settings of the converter were changed from outside.
    virtual OSStatus converterChanged() { return noErr; }

    const LayoutBlock& fileLayout() const { return fileLayout_; }
    const LayoutBlock& clientLayout() const { return clientLayout_; }
    OSStatus setFileLayout(LayoutBlock layout);
    OSStatus setClientLayout(LayoutBlock layout);

    /// The memory that is transferred to or from the audio file at once.
    std::span<std::byte> buffer() const { return buffer_.bytes(); }
    UInt32 bufferSize() const { return static_cast<UInt32>(buffer().size()); }
    /// Own memory of `bytes` bytes, or of one packet if that is larger.
    void setBufferSize(UInt32 bytes);
    /// The caller's memory, as large as the buffer; null for own memory again.
    void setBuffer(std::byte* memory);

    /// Whether a codec is at work, and whether it can still be chosen.
    bool isCoded() const { return fileFormat_.mBytesPerFrame == 0; }
    bool canChooseCodec() const { return isCoded() && !converter_; }

    /// The maximum packet size of the file, in bytes.
    virtual OSStatus maximumPacketSize(UInt32& bytes);

    /// See the functions of ExtAudioFile.h; a direction that the file does not have is InvalidOperationOrder.
    virtual OSStatus read(UInt32& frames, AudioBufferList& data);
    virtual OSStatus primeReads();
    virtual OSStatus write(UInt32 frames, const AudioBufferList& data);
    virtual OSStatus writeAsync(UInt32 frames, const AudioBufferList& data);
    virtual OSStatus primeWrites();
    virtual OSStatus seek(SInt64 frame) = 0;
    virtual SInt64 tell() const = 0;
    virtual OSStatus length(SInt64& frames) = 0;
    virtual bool canSetLength() const { return false; }
    virtual OSStatus setLength(SInt64 frames);
    /// Whether what a kill leaves of the file is to open: 1 or 0.
    virtual bool canSetKeepsReadable() const { return false; }
    virtual OSStatus setKeepsReadable(UInt32 keeps);
    virtual UInt64 missedFrames() const { return 0; }

    /// Completes and closes; nothing else is called after it but the destructor.
    OSStatus close();

protected:
    explicit ExtendedFile(AudioFileID file);

    static constexpr UInt32 usualBufferSize = 1U << 18; // bytes

    const PcmLayout& clientSamples() const { return clientSamples_; }
    AudioConverterRef currentConverter() const { return converter_.get(); }

    /// Makes the file's own format the client's, if it is linear PCM that can be converted.
    void startWithFileFormat();
    /// Waits until no other thread is at work for the file.
    virtual OSStatus rest() = 0;
    /// The same, and ends the stream of frames: what comes next starts a new one.
    virtual OSStatus settle() = 0;
    /// Makes a converter for a client format.
    virtual OSStatus connect(const AudioStreamBasicDescription& client, AudioConverterRef& converter) = 0;
    /// A new converter took effect.
    virtual void connected() {}
    /// Completes the file before it is closed.
    virtual OSStatus complete() { return noErr; }
    /// Bytes of one packet.
    virtual UInt32 leastBufferSize() const = 0;
    /// Called before another buffer is used. Changes nothing if it throws.
    virtual void bufferChanged() = 0;
    /// Whether frames come from the file.
    virtual bool reads() const = 0;

    AudioStreamBasicDescription fileFormat_;

private:
    void applyLayouts();
    void use(IOBuffer buffer);

    AudioFileID file_;
    bool owns_ = false;
    IOBuffer buffer_;
    AudioStreamBasicDescription clientFormat_;
    PcmLayout clientSamples_;
    ConverterHandle converter_;
    LayoutBlock fileLayout_, clientLayout_;
};

} // namespace qmx
