// SPDX-License-Identifier: MIT
#include "Front/FrameWriter.h"

#include "Front/FrameFiles.h"
#include "Front/StatusText.h"

#include <algorithm>
#include <utility>

namespace qmx
{

struct FrameWriter::State {
    OutputFile output;
    Format format;
    FrameFile file;            // closed before the output removes it
    bool isIncomplete = false; ///< a write failed
};

FrameWriter::FrameWriter(std::unique_ptr<State> state) : state_(std::move(state)) {}
FrameWriter::~FrameWriter()
{
    const QuietFailureLines quiet; // of a file that is given up
    state_.reset();
}

FrameWriter::FrameWriter(FrameWriter&&) noexcept = default;
FrameWriter& FrameWriter::operator=(FrameWriter&&) noexcept = default;

Result<FrameWriter> FrameWriter::create(const std::string& path, const Format& format,
                                        const FrameWriterOptions& options)
{
    return orNoMemory([&]() -> Result<FrameWriter> {
        const auto client = floatFormat(format.stream.mSampleRate, format.stream.mChannelsPerFrame);
        const auto complete = format.completedFrom({.stream = client});
        if (!complete)
            return ofFile(complete.error(), path);
        auto output = OutputFile::at(path, options.replace);
        if (!output)
            return output.error();
        auto file = makeFile(*output, *complete, client);
        if (!file)
            return file.error();
        return FrameWriter(std::make_unique<State>(State{*std::move(output), *complete, *std::move(file), false}));
    });
}

const Format& FrameWriter::format() const
{
    return state_->format;
}

const std::shared_ptr<QMXExtAudioFile>& FrameWriter::object() const
{
    return state_->file;
}

Result<void> FrameWriter::write(std::span<const float> samples)
{
    constexpr std::size_t mostAtOnce = 1U << 14;
    if (!state_)
        return Error(fnOpnErr, "The writer was moved from");
    const bool wasIncomplete = std::exchange(state_->isIncomplete, true);
    return orNoMemory([&]() -> Result<void> {
        const std::string& path = state_->output.path();
        const std::size_t channels = state_->format.stream.mChannelsPerFrame;
        if (!state_->file)
            return Error(fnOpnErr, path + ": It is finished", path);
        if (samples.size() % channels != 0)
            return Error(paramErr, path + ": A part of a frame cannot be written", path);
        for (std::size_t done = 0, frames = samples.size() / channels; done < frames;) {
            const std::size_t count = std::min(frames - done, mostAtOnce);
            if (auto error = writeFrames(*state_->file, &samples[done * channels], static_cast<UInt32>(count), path))
                return *std::move(error);
            done += count;
        }
        state_->isIncomplete = wasIncomplete;
        return {};
    });
}

Result<void> FrameWriter::finish()
{
    if (!state_)
        return Error(fnOpnErr, "The writer was moved from");
    return orNoMemory([&]() -> Result<void> {
        const std::string& path = state_->output.path();
        const FrameFile file = std::exchange(state_->file, nullptr);
        if (!file)
            return Error(fnOpnErr, path + ": It is finished", path);
        if (const OSStatus status = file->close(); status != noErr)
            return fileError(status, path);
        if (state_->isIncomplete)
            return Error(ioErr, path + ": Something could not be written before", path);
        return state_->output.finish();
    });
}

} // namespace qmx
