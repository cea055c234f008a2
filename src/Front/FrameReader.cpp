// SPDX-License-Identifier: MIT
#include "Front/FrameReader.h"

#include "Foundation/Memory.h"
#include "Front/FrameFiles.h"
#include "Front/StatusText.h"

#include <algorithm>
#include <utility>

namespace qmx
{

FrameReader::FrameReader(const std::string& path, UInt32 framesPerBlock, const FrameReaderOptions& options)
{
    const QuietFailureLines quiet;
    error_ = withinMemory(std::optional(memoryError()), [&] { return openPath(path, framesPerBlock, options); });
}

FrameReader::~FrameReader() = default;
FrameReader::FrameReader(FrameReader&&) noexcept = default;
FrameReader& FrameReader::operator=(FrameReader&&) noexcept = default;

Result<FrameReader> FrameReader::open(const std::string& path, UInt32 framesPerBlock, const FrameReaderOptions& options)
{
    FrameReader reader(path, framesPerBlock, options);
    if (reader.error_)
        return *std::move(reader.error_);
    return reader;
}

std::optional<Error> FrameReader::openPath(const std::string& path, UInt32 framesPerBlock,
                                           const FrameReaderOptions& options)
{
    auto file = openFile(path);
    if (!file)
        return file.error();
    const Float64 rate = options.sampleRate != 0 ? options.sampleRate : (*file)->sampleRate();
    const UInt32 channels = options.channels != 0 ? options.channels : (*file)->channelsPerFrame();
    if (const OSStatus status = (*file)->setClientStreamFormat(floatFormat(rate, channels)); status != noErr)
        return fileError(status, path);
    const SInt64 length = (*file)->lengthInFrames();
    if (length < 0)
        return fileError((*file)->lastStatus(), path);
    constexpr std::size_t mostSamples = std::size_t{1} << 24;
    if (framesPerBlock > mostSamples / std::max<UInt32>(channels, 1))
        return Error(paramErr, path + ": Blocks of " + std::to_string(framesPerBlock) + " frames are too large", path);
    samples_.resize(std::size_t{std::max<UInt32>(framesPerBlock, 1)} * channels);
    format_ = formatOf(**file);
    channels_ = channels;
    sampleRate_ = rate;
    length_ = length;
    file_ = *std::move(file);
    return std::nullopt;
}

FrameReader::Iterator FrameReader::begin()
{
    readBlock();
    return Iterator(*this);
}

void FrameReader::readBlock()
{
    block_ = {};
    if (const auto frames = read(samples_))
        block_ = std::span(samples_).first(*frames * channels_);
}

Result<void> FrameReader::seek(SInt64 frame)
{
    return orNoMemory([&]() -> Result<void> {
        if (!file_)
            return whyClosed();
        if (const OSStatus status = file_->seek(frame); status != noErr)
            return fileError(status, file_->path());
        error_.reset();
        return {};
    });
}

Result<std::size_t> FrameReader::read(std::span<float> samples)
{
    if (!file_)
        return orNoMemory([&]() -> Result<std::size_t> { return whyClosed(); });
    auto frames = orNoMemory([&] { return readWhole(samples); });
    error_.reset();
    if (!frames && !withinMemory([&] { error_ = frames.error(); }))
        error_ = memoryError();
    return frames;
}

Error FrameReader::whyClosed() const
{
    return error_.value_or(Error(fnOpnErr, "The reader was moved from"));
}

Result<std::size_t> FrameReader::readWhole(std::span<float> samples)
{
    constexpr std::size_t mostAtOnce = 1U << 16;
    const std::size_t wanted = samples.size() / channels_;
    std::size_t done = 0;
    while (done < wanted) {
        const auto count = static_cast<UInt32>(std::min(wanted - done, mostAtOnce));
        const auto frames = readFrames(*file_, &samples[done * channels_], count);
        if (!frames && done == 0)
            return frames.error();
        if (!frames || *frames == 0)
            break;
        done += *frames;
    }
    return done;
}

} // namespace qmx
