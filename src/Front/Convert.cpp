// SPDX-License-Identifier: MIT
#include "Front/Convert.h"

#include "FileRelated/ChannelLayoutTransfer.h"
#include "Front/FrameFiles.h"
#include "Front/Progress.h"
#include "Front/StatusText.h"
#include "Front/TrackTransfer.h"

#include <algorithm>
#include <tuple>
#include <utility>
#include <vector>

namespace qmx
{
namespace
{

bool isSame(const AudioStreamBasicDescription& one, const AudioStreamBasicDescription& other)
{
    const auto fields = [](const AudioStreamBasicDescription& of) {
        return std::tie(of.mSampleRate, of.mFormatID, of.mFormatFlags, of.mBytesPerPacket, of.mFramesPerPacket,
                        of.mBytesPerFrame, of.mChannelsPerFrame, of.mBitsPerChannel);
    };
    return fields(one) == fields(other);
}

/// Both files meet in native samples that hold all that both of them hold; samples that stay as they are, in those.
AudioStreamBasicDescription meetingFormat(const Format& source, const Format& target)
{
    if (source.isLinear() && isSame(source.stream, target.stream))
        return source.stream;
    constexpr UInt32 bitsOfFloats = 24;
    AudioStreamBasicDescription format = floatFormat(source.stream.mSampleRate, source.stream.mChannelsPerFrame);
    const UInt32 bits = std::min(source.stream.mBitsPerChannel, target.stream.mBitsPerChannel);
    if (source.isFloat() && target.isFloat() && bits == 64) {
        format.mBitsPerChannel = bits;
        format.mBytesPerFrame = format.mBytesPerPacket = format.mChannelsPerFrame * bits / 8;
    } else if (std::min(source.integerBits(), target.integerBits()) > bitsOfFloats) {
        format.mFormatFlags =
            kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked | kAudioFormatFlagsNativeEndian;
    }
    return format;
}

/// Copies the range, or what the source has of it.
std::optional<Error> copyFrames(QMXExtAudioFile& source, const FrameRange& range, QMXExtAudioFile& target,
                                const std::string& targetPath, Progress& progress)
{
    constexpr SInt64 framesAtOnce = 4096;
    std::vector<Byte> block(std::size_t{framesAtOnce} * source.clientBytesPerFrame());
    const SInt64 wanted = range.end - range.first, there = source.lengthInFrames() - range.first;
    const auto length = static_cast<double>(std::max<SInt64>(std::min(wanted, there), 1));
    for (SInt64 done = 0; progress.report(static_cast<double>(done) / length);) {
        const auto atOnce = static_cast<UInt32>(std::min(framesAtOnce, wanted - done));
        const auto frames = atOnce > 0 ? readFrames(source, block.data(), atOnce) : Result(atOnce);
        if (!frames)
            return frames.error();
        if (*frames == 0)
            return std::nullopt;
        if (auto error = writeFrames(target, block.data(), *frames, targetPath))
            return error;
        done += *frames;
    }
    return fileError(cancelledStatus, targetPath);
}

/// Makes the file at the temporary path of `output`.
std::optional<Error> fill(const OutputFile& output, const Format& format, const FrameFile& source,
                          const AudioStreamBasicDescription& client, const FrameRange& range, Progress& progress)
{
    const auto target = makeFile(output, format, client);
    if (!target)
        return target.error();
    passLayoutOn(*source, **target);
    if (auto error = copyFrames(*source, range, **target, output.path(), progress))
        return error;
    const OSStatus closed = (*target)->close();
    return closed == noErr ? std::nullopt : std::optional(fileError(closed, output.path()));
}

Result<void> converted(const std::string& input, const std::string& output, const Format& wish,
                       const ConvertOptions& options)
{
    Progress progress(options.progress, options.stop);
    if (options.range.first < 0 || options.range.end < options.range.first)
        return Error(paramErr, input + ": It has no frames in the range", input);
    auto source = openFile(input);
    if (!source)
        return source.error();
    const Format sourceFormat = formatOf(**source);
    const bool isWhole = options.range.first == 0 && options.range.end >= (*source)->lengthInFrames();
    const auto format = wish.completedFrom(sourceFormat);
    if (!format)
        return ofFile(format.error(), output);
    const auto tracks = tracksToPass(input, sourceFormat, *format, options.keepTracks && isWhole);
    if (!tracks)
        return tracks.error();
    auto file = OutputFile::at(output, options.replace, input);
    if (!file)
        return file.error();
    const AudioStreamBasicDescription client = meetingFormat(sourceFormat, *format);
    OSStatus status = (*source)->setClientStreamFormat(client);
    if (status == noErr)
        status = (*source)->seek(options.range.first);
    if (status != noErr)
        return fileError(status, input);
    if (auto error = fill(*file, *format, *source, client, options.range, progress))
        return *std::move(error);
    if (auto error = storePassed(*tracks, *file))
        return *std::move(error);
    Result<void> finished = file->finish();
    if (finished)
        progress.finish();
    return finished;
}

} // namespace

Result<void> convert(const std::string& input, const std::string& output, const Format& format,
                     const ConvertOptions& options)
{
    return orNoMemory([&] { return converted(input, output, format, options); });
}

Result<void> convert(const std::string& input, const std::string& output, const ConvertOptions& options)
{
    return orNoMemory([&]() -> Result<void> {
        const auto format = Format::forPath(output);
        return format ? converted(input, output, *format, options) : format.error();
    });
}

} // namespace qmx
