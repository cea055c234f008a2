// SPDX-License-Identifier: MIT
#include "support/Recording.h"

#include "support/Failure.h"
#include "support/StatusText.h"

#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Processing/QMXAudioConverter.h>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace example
{
namespace
{

/// The reason why the system cannot read `path`; empty if it can.
std::string systemObjection(const std::string& path)
{
    struct stat status {
    };
    if (stat(path.c_str(), &status) != 0)
        return systemErrorText(errno);
    if (S_ISDIR(status.st_mode))
        return systemErrorText(EISDIR);
    if (!S_ISREG(status.st_mode))
        return "not a regular file";
    if (access(path.c_str(), R_OK) != 0)
        return systemErrorText(errno);
    return status.st_size == 0 ? "the file is empty" : "";
}

std::shared_ptr<QMXAudioConverter> floatConverter(const QMXAudioFile& file)
{
    AudioStreamBasicDescription record = *file.fileStreamFormat()->audioStreamBasicDescription();
    record.mFormatID = kAudioFormatLinearPCM;
    record.mFormatFlags = kAudioFormatFlagsNativeFloatPacked;
    record.mBitsPerChannel = 8 * sizeof(float);
    record.mBytesPerFrame = record.mBytesPerPacket = record.mChannelsPerFrame * UInt32{sizeof(float)};
    record.mFramesPerPacket = 1;
    return QMXAudioConverter::initWithSourceFormat_destinationFormat(
        file.fileStreamFormat(), std::make_shared<QMXAudioStreamBasicDescription>(record));
}

} // namespace

std::shared_ptr<QMXAudioFile> openAudioFile(const std::string& path)
{
    if (const std::string objection = systemObjection(path); !objection.empty())
        throw Failure{path + ": " + objection};
    auto file = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::read);
    if (!file->open())
        throw Failure{path + ": " + statusText(file->lastStatus())};
    return file;
}

void checkSamples(QMXAudioFile& file)
{
    const std::string path = file.path().value_or("");
    if (file.bytesPerFrame() == 0 || !floatConverter(file))
        throw Failure{path + ": its coding (" + file.formatIDName().value_or("unknown") + ") cannot be read"};
    if (frameCount(file) == 0)
        throw Failure{path + ": holds no audio"};
}

std::shared_ptr<QMXAudioFile> openRecording(const std::string& path)
{
    auto file = openAudioFile(path);
    checkSamples(*file);
    return file;
}

UInt64 frameCount(QMXAudioFile& file)
{
    return file.bytesPerFrame() == 0 ? 0 : file.lengthInBytes() / file.bytesPerFrame();
}

} // namespace example
