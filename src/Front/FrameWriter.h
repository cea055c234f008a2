// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Format.h>
#include <QMXCoreAudio/Front/Result.h>

#include <memory>
#include <string>

class QMXExtAudioFile;

namespace qmx
{

struct FrameWriterOptions {
    bool replace = false; ///< an existing file; it stays as it is until the new one is finished
};

/// Makes an audio file from interleaved floats, under a hidden name beside its own. It gets its own when it is
/// finished; a writer that is destroyed before leaves nothing. Any one thread, but no real-time one; it writes to the
/// disk.
class QMX_EXPORT FrameWriter
{
public:
    /// `format` needs a sample rate and a number of channels, which are those of the frames too; without bits, the file
    /// holds floats where its type can. dupFNErr for an existing file unless it may be replaced.
    static Result<FrameWriter> create(const std::string& path, const Format& format,
                                      const FrameWriterOptions& options = {});
    ~FrameWriter();
    FrameWriter(FrameWriter&&) noexcept;
    FrameWriter& operator=(FrameWriter&&) noexcept;

    /// What the file is in.
    const Format& format() const;
    /// Writes whole frames; paramErr for a part of one. A failure of the disk is the error of this write or a later
    /// one, and of the end.
    Result<void> write(std::span<const float> samples);
    /// Writes what is left and gives the file its name. After an error the file is not made.
    Result<void> finish();

    /// The described object behind it, null after the end.
    const std::shared_ptr<QMXExtAudioFile>& object() const;

private:
    struct State;
    explicit FrameWriter(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace qmx
