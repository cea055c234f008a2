// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/VarispeedUnit.h"

#include "AudioUnit/Units/PropertyValue.h"
#include "AudioUnit/Units/RateStage.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qmx
{
namespace
{

constexpr Float32 highestRate = 32;
constexpr Float32 highestCents = 6000;
constexpr Float32 centsOfOctave = 1200;

void keepFirst(OSStatus& status, OSStatus next)
{
    if (status == noErr)
        status = next;
}

class VarispeedEngine : public RenderEngine
{
public:
    VarispeedEngine(Unit& unit, const InputElement& input, const PcmLayout& from, const PcmLayout& to, UInt32 quality,
                    UInt32 maximumFrames)
        : RenderEngine(to, maximumFrames), unit_(unit), input_(input, 0, from, maximumFrames),
          stage_(from, to,
                 {{1 / highestRate, highestRate}, quality, ChannelRoutes::between(from.channels, to.channels)},
                 maximumFrames),
          delay_(stage_.lookAhead()), silenceLeft_(delay_)
    {
    }

    /// In input frames.
    std::size_t delay() const { return delay_; }

protected:
    OSStatus renderInto(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target) override
    {
        Float32 rate = 1;
        unit_.parameter(kVarispeedParam_PlaybackRate, kAudioUnitScope_Global, rate);
        stage_.setRatio(1 / Float64{rate});
        follow(time, frames, rate);

        OSStatus status = noErr;
        std::size_t made = stage_.produce(target, frames);
        while (made < frames) {
            keepFirst(status, feed(time, frames - made));
            made += stage_.produce(target, frames - made);
        }
        return status;
    }

    void restart() override
    {
        input_.restart();
        stage_.restart();
        silenceLeft_ = delay_;
        nextTime_ = -1;
    }

private:
    /// Has the input jump as the output did.
    void follow(const AudioTimeStamp& time, UInt32 frames, Float32 rate)
    {
        if (!(time.mFlags & kAudioTimeStampSampleTimeValid) || !(std::abs(time.mSampleTime) < 1e15)) {
            nextTime_ = -1;
            return;
        }
        const Float64 gap = time.mSampleTime - nextTime_;
        if (nextTime_ >= 0 && gap != 0)
            input_.jump(std::llround(gap * Float64{rate}));
        nextTime_ = time.mSampleTime + frames;
    }

    OSStatus feed(const AudioTimeStamp& time, std::size_t outputFrames)
    {
        if (silenceLeft_ > 0) {
            const auto frames = std::min<std::size_t>(silenceLeft_, input_.maximumFrames());
            silenceLeft_ -= frames;
            stage_.feedSilence(frames);
            return noErr;
        }
        const Float64 needed = std::ceil(stage_.inputFramesFor(outputFrames));
        const auto frames = static_cast<UInt32>(std::clamp<Float64>(needed, 1, input_.maximumFrames()));
        const OSStatus status = input_.render(time, frames);
        stage_.feed(input_.slice(), frames);
        return status;
    }

    Unit& unit_; ///< owns this
    InputSlice input_;
    RateStage stage_;
    std::size_t delay_, silenceLeft_; ///< input frames of silence before the input, and those still to come
    Float64 nextTime_ = -1;           ///< of output that follows on; none yet when negative
};

} // namespace

const Unit::ParameterRange VarispeedUnit::parameters[] = {
    {.id = kVarispeedParam_PlaybackRate, .minimum = 1 / highestRate, .maximum = highestRate, .initial = 1},
    {.id = kVarispeedParam_PlaybackCents, .minimum = -highestCents, .maximum = highestCents, .initial = 0}};

VarispeedUnit::VarispeedUnit() : QualityUnit({.inputs = 1, .outputs = 1}, parameters) {}

OSStatus VarispeedUnit::setParameter(AudioUnitParameterID id, AudioUnitScope scope, Float32 value)
{
    const OSStatus status = Unit::setParameter(id, scope, value);
    Float32 set = 0;
    if (status != noErr || parameter(id, scope, set) != noErr)
        return status;
    return id == kVarispeedParam_PlaybackRate
               ? Unit::setParameter(kVarispeedParam_PlaybackCents, scope, centsOfOctave * std::log2(set))
               : Unit::setParameter(kVarispeedParam_PlaybackRate, scope, std::exp2(set / centsOfOctave));
}

OSStatus VarispeedUnit::makeEngine(UInt32, std::unique_ptr<RenderEngine>& engine)
{
    const auto from = PcmLayout::of(input(0).format), to = PcmLayout::of(outputFormat(0));
    if (!from || !to)
        return kAudioUnitErr_FormatNotSupported;
    auto made = std::make_unique<VarispeedEngine>(*this, input(0), *from, *to, quality(), maximumFrames());
    latency_ = static_cast<Float64>(made->delay()) / input(0).format.mSampleRate;
    engine = std::move(made);
    return noErr;
}

OSStatus VarispeedUnit::read(const UnitPropertyAddress& address, void* value) const
{
    // what the filter looks ahead it also keeps
    return address.id == kAudioUnitProperty_Latency || address.id == kAudioUnitProperty_TailTime
               ? answer(value, latency_)
               : QualityUnit::read(address, value);
}

} // namespace qmx
