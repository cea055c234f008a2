// SPDX-License-Identifier: MIT
// Files of frames as the front opens and makes them: with their failures as errors of the path that was asked for.
// Internal to the front.
#pragma once

#include "FileRelated/QMXExtAudioFile.h"
#include "Front/Format.h"
#include "Front/OutputFile.h"
#include "Front/Result.h"

#include <memory>
#include <optional>
#include <string>

namespace qmx
{

/// The error of work that ran out of memory; made without any.
inline Error memoryError()
{
    return {memFullErr, "Out of memory"};
}

template <class Value> Result<Value> outOfMemory()
{
    return memoryError();
}

/// An error that names no file yet, as one of `path`.
inline Error ofFile(const Error& error, const std::string& path)
{
    return {error.status(), path + ": " + error.text(), path};
}

using FrameFile = std::shared_ptr<QMXExtAudioFile>;

/// The file at `path`, open for reading.
Result<FrameFile> openFile(const std::string& path);
/// What an open file is in.
Format formatOf(QMXExtAudioFile& file);
/// A new file under the temporary name of `output`, which takes frames in the format `client`.
Result<FrameFile> makeFile(const OutputFile& output, const Format& format, const AudioStreamBasicDescription& client);
/// Native interleaved floats.
AudioStreamBasicDescription floatFormat(Float64 sampleRate, UInt32 channels);

/// Reads interleaved client frames to `data`; returns how many: 0 at the end. An error only if there are none before
/// the place that cannot be read, and if the file ends earlier than it says.
Result<UInt32> readFrames(QMXExtAudioFile& file, void* data, UInt32 frames);
/// Queues interleaved client frames; an error may be that of earlier ones. `path` is the one to name.
std::optional<Error> writeFrames(QMXExtAudioFile& file, const void* data, UInt32 frames, const std::string& path);

} // namespace qmx
