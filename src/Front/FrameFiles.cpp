// SPDX-License-Identifier: MIT
#include "Front/FrameFiles.h"

#include "Front/InputFile.h"
#include "Front/StatusText.h"

#include <utility>

namespace qmx
{
namespace
{

AudioBufferList listOf(const QMXExtAudioFile& file, const void* data, UInt32 frames)
{
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {file.clientChannelsPerFrame(), frames * file.clientBytesPerFrame(), const_cast<void*>(data)};
    return list;
}

} // namespace

Result<FrameFile> openFile(const std::string& path)
{
    if (auto objection = objectionToReading(path))
        return *std::move(objection);
    FrameFile file = made(QMXExtAudioFile::initForReading_clientFormat(path, nullptr));
    if (const OSStatus status = file->open(); status != noErr)
        return fileError(status, path);
    return file;
}

Format formatOf(QMXExtAudioFile& file)
{
    Format format{.stream = *file.fileStreamFormat()};
    UInt32 size = sizeof format.fileType; // of the open file: fileType() would open it again
    if (AudioFileGetProperty(file.audioFileId(), kAudioFilePropertyFileFormat, &size, &format.fileType) != noErr)
        format.fileType = 0;
    size = sizeof format.bitRate;
    if (!format.isLossless() &&
        AudioFileGetProperty(file.audioFileId(), kAudioFilePropertyBitRate, &size, &format.bitRate) != noErr)
        format.bitRate = 0;
    return format;
}

Result<FrameFile> makeFile(const OutputFile& output, const Format& format, const AudioStreamBasicDescription& client)
{
    FrameFile file = made(QMXExtAudioFile::initForWriting_fileType_clientFormat_fileFormat(
        output.temporaryPath(), format.fileType, &client, &format.stream));
    (void)file->open(); // lastStatus() has the first step that failed
    if (file->lastStatus() == noErr && format.bitRate != 0)
        file->setBitRate(format.bitRate);
    if (file->lastStatus() != noErr)
        return fileError(file->lastStatus(), output.path());
    return file;
}

AudioStreamBasicDescription floatFormat(Float64 sampleRate, UInt32 channels)
{
    const UInt32 frameBytes = channels * UInt32{sizeof(Float32)};
    return {sampleRate,
            kAudioFormatLinearPCM,
            kAudioFormatFlagsNativeFloatPacked,
            frameBytes,
            1,
            frameBytes,
            channels,
            8 * sizeof(Float32),
            0};
}

Result<UInt32> readFrames(QMXExtAudioFile& file, void* data, UInt32 frames)
{
    AudioBufferList list = listOf(file, data, frames);
    const OSStatus status = file.read_numberFrames(&list, &frames);
    if (frames > 0)
        return frames; // the next read fails again
    if (status != noErr)
        return fileError(status, file.path());
    if (file.offset() < file.lengthInFrames())
        return Error(eofErr, file.path() + ": It ends earlier than it says", file.path());
    return 0U;
}

std::optional<Error> writeFrames(QMXExtAudioFile& file, const void* data, UInt32 frames, const std::string& path)
{
    const AudioBufferList list = listOf(file, data, frames);
    const OSStatus status = file.write_numberFrames(&list, frames);
    return status == noErr ? std::nullopt : std::optional(fileError(status, path));
}

} // namespace qmx
