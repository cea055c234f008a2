// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/ConverterEngine.h"

#include <algorithm>
#include <cmath>

namespace qmx
{
namespace
{

void keepFirst(OSStatus& status, OSStatus next)
{
    if (status == noErr)
        status = next;
}

} // namespace

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
    engine.reset(new ConverterEngine(input, element, conversion, *from, *to, maximumFrames));
    return noErr;
}

ConverterEngine::ConverterEngine(const InputElement& input, UInt32 element, const Conversion& conversion,
                                 const PcmLayout& from, const PcmLayout& to, UInt32 maximumFrames)
    : RenderEngine(to, maximumFrames), input_(input, element, from, maximumFrames)
{
    if (conversion.ratio)
        rate_.emplace(from, to,
                      RateStage::Way{{*conversion.ratio, *conversion.ratio}, conversion.quality, conversion.routes},
                      maximumFrames);
    else
        straight_ = FrameConverter::between(from, to, conversion.routes);
}

OSStatus ConverterEngine::renderInto(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target)
{
    return rate_ ? renderAtRate(time, frames, target) : renderStraight(time, frames, target);
}

OSStatus ConverterEngine::renderStraight(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target)
{
    // output slices are never larger than input slices
    const OSStatus status = input_.render(time, frames);
    straight_->convert(input_.slice(), target, frames);
    return status;
}

OSStatus ConverterEngine::renderAtRate(const AudioTimeStamp& time, std::size_t frames, TargetFrames& target)
{
    OSStatus status = noErr;
    while ((frames -= rate_->produce(target, frames)) > 0) {
        const Float64 needed = std::ceil(rate_->inputFramesFor(frames));
        const auto wanted = static_cast<UInt32>(std::clamp<Float64>(needed, 1, input_.maximumFrames()));
        keepFirst(status, input_.render(time, wanted));
        rate_->feed(input_.slice(), wanted);
    }
    return status;
}

void ConverterEngine::skip(UInt32 frames)
{
    input_.jump(rate_ ? std::llround(rate_->inputFramesFor(frames)) : SInt64{frames});
}

void ConverterEngine::restart()
{
    input_.restart();
    if (rate_)
        rate_->restart();
}

} // namespace qmx
