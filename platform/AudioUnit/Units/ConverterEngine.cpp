// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/ConverterEngine.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

/// Maximum frames that one call of the rate conversion makes.
constexpr std::size_t blockFrames = 512;

PcmLayout floats(UInt32 channels)
{
    return {{.coding = SampleCoding::floating, .bytes = 4, .bits = 32}, channels, true};
}

void keepFirst(OSStatus& status, OSStatus next)
{
    if (status == noErr)
        status = next;
}

} // namespace

/// Input frames to floats, rate conversion, floats to output frames. Channels are mixed on the side that leaves fewer
/// of them to convert.
class ConverterEngine::RateStage
{
public:
    RateStage(const PcmLayout& from, const PcmLayout& to, const Conversion& conversion, UInt32 maximumFrames)
        : middle_(floats(std::min(from.channels, to.channels))), ratio_(*conversion.ratio),
          rate_(middle_.channels, conversion.quality), in_(std::size_t{maximumFrames} * middle_.channels),
          out_(blockFrames * middle_.channels), toRead_{{reinterpret_cast<const std::byte*>(out_.data())},
                                                        middle_.planeFrameBytes(),
                                                        blockFrames},
          toWrite_{{reinterpret_cast<std::byte*>(in_.data())}, middle_.planeFrameBytes(), maximumFrames}
    {
        const ChannelRoutes unchanged = ChannelRoutes::identity(middle_.channels);
        const bool mixesFirst = from.channels > to.channels;
        toRate_ = FrameConverter::between(from, middle_, mixesFirst ? conversion.routes : unchanged);
        fromRate_ = FrameConverter::between(middle_, to, mixesFirst ? unchanged : conversion.routes);
    }

    bool isUsable() const { return rate_.isUsable(); }

    OSStatus renderInto(InputSlice& input, const AudioTimeStamp& time, std::size_t frames, TargetFrames& target)
    {
        OSStatus status = noErr;
        while (frames > 0) {
            const auto progress = rate_.process(in_.data() + used_ * middle_.channels, ready_, out_.data(),
                                                std::min(frames, blockFrames), ratio_);
            used_ += progress.taken;
            ready_ -= progress.taken;
            if (progress.made > 0) {
                fromRate_->convert(toRead_, target, progress.made);
                target.advance(progress.made);
                frames -= progress.made;
            } else {
                keepFirst(status, renderInput(input, time, frames));
            }
        }
        return status;
    }

    void restart()
    {
        rate_.restart();
        ready_ = 0;
    }

private:
    OSStatus renderInput(InputSlice& input, const AudioTimeStamp& time, std::size_t outputFrames)
    {
        const Float64 needed = std::ceil(static_cast<Float64>(outputFrames) / ratio_);
        const auto frames = static_cast<UInt32>(std::clamp<Float64>(needed, 1, input.maximumFrames()));
        const OSStatus status = input.render(time, frames);
        toRate_->convert(input.slice(), toWrite_, frames);
        used_ = 0;
        ready_ = frames;
        return status;
    }

    PcmLayout middle_;
    Float64 ratio_;
    VariableRateConverter rate_;
    std::vector<Float32> in_, out_;
    SourceFrames toRead_;
    TargetFrames toWrite_;
    std::size_t used_ = 0, ready_ = 0; ///< frames of `in_`
    std::unique_ptr<FrameConverter> toRate_, fromRate_;
};

ConverterEngine::Conversion ConverterEngine::between(const AudioStreamBasicDescription& from,
                                                     const AudioStreamBasicDescription& to)
{
    Conversion conversion;
    conversion.from = from;
    conversion.to = to;
    conversion.routes = ChannelRoutes::between(from.mChannelsPerFrame, to.mChannelsPerFrame);
    if (from.mSampleRate != to.mSampleRate)
        conversion.ratio = to.mSampleRate / from.mSampleRate;
    return conversion;
}

OSStatus ConverterEngine::make(const InputElement& input, UInt32 element, const Conversion& conversion,
                               UInt32 maximumFrames, std::unique_ptr<RenderEngine>& engine)
{
    const auto from = PcmLayout::of(conversion.from), to = PcmLayout::of(conversion.to);
    constexpr Float64 highest = VariableRateConverter::highestRatio;
    if (!from || !to || (conversion.ratio && !(*conversion.ratio <= highest && *conversion.ratio >= 1 / highest)))
        return kAudioUnitErr_FormatNotSupported;
    std::unique_ptr<ConverterEngine> made(new ConverterEngine(input, element, conversion, *from, *to, maximumFrames));
    if (made->rate_ && !made->rate_->isUsable())
        return kAudioUnitErr_FormatNotSupported;
    engine = std::move(made);
    return noErr;
}

ConverterEngine::ConverterEngine(const InputElement& input, UInt32 element, const Conversion& conversion,
                                 const PcmLayout& from, const PcmLayout& to, UInt32 maximumFrames)
    : RenderEngine(to, maximumFrames), input_(input, element, from, maximumFrames)
{
    if (conversion.ratio)
        rate_ = std::make_unique<RateStage>(from, to, conversion, maximumFrames);
    else
        straight_ = FrameConverter::between(from, to, conversion.routes);
}

ConverterEngine::~ConverterEngine() = default;

OSStatus ConverterEngine::renderInto(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target)
{
    return rate_ ? rate_->renderInto(input_, time, frames, target) : renderStraight(time, frames, target);
}

OSStatus ConverterEngine::renderStraight(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target)
{
    // output slices are never larger than input slices
    const OSStatus status = input_.render(time, frames);
    straight_->convert(input_.slice(), target, frames);
    return status;
}

void ConverterEngine::restart()
{
    input_.restart();
    if (rate_)
        rate_->restart();
}

} // namespace qmx
