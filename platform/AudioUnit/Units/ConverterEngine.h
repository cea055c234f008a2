// SPDX-License-Identifier: MIT
// Renders one input element and converts its frames: layout, channels and rate.
#pragma once

#include "AudioUnit/Units/InputSource.h"
#include "AudioUnit/Units/RateStage.h"
#include "AudioUnit/Units/RenderEngine.h"

#include <memory>
#include <optional>

namespace qmx
{

/// Renders its input in as many slices as it takes, each of 1 frame to the maximum frames per slice.
class ConverterEngine : public RenderEngine
{
public:
    /// How frames get from the input to the output.
    struct Conversion {
        AudioStreamBasicDescription from, to;
        ChannelRoutes routes;
        /// Output frames per input frame; no value when frames pass one for one.
        std::optional<Float64> ratio;
        UInt32 quality = VariableRateConverter::defaultQuality;
    };

    /// The conversion between two formats as they stand, rates included.
    static Conversion between(const AudioStreamBasicDescription& from, const AudioStreamBasicDescription& to);
    /// kAudioUnitErr_FormatNotSupported, and no engine, if the formats or rates cannot be converted. `input` must
    /// outlive the engine.
    static OSStatus make(const InputElement& input, UInt32 element, const Conversion& conversion, UInt32 maximumFrames,
                         std::unique_ptr<RenderEngine>& engine);

    void skip(UInt32 frames) override;

protected:
    OSStatus renderInto(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target) override;
    void restart() override;

private:
    ConverterEngine(const InputElement& input, UInt32 element, const Conversion& conversion, const PcmLayout& from,
                    const PcmLayout& to, UInt32 maximumFrames);
    OSStatus renderStraight(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target);
    OSStatus renderAtRate(const AudioTimeStamp& time, std::size_t frames, TargetFrames& target);

    InputSlice input_;
    std::unique_ptr<FrameConverter> straight_; ///< one frame in, one frame out
    std::optional<RateStage> rate_;            ///< otherwise
};

} // namespace qmx
