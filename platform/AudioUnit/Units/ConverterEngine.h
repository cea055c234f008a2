// SPDX-License-Identifier: MIT
// Renders one input element and converts its frames: layout, channels and rate.
#pragma once

#include "AudioToolbox/Conversion/VariableRateConverter.h"
#include "AudioUnit/Units/InputSource.h"
#include "AudioUnit/Units/RenderEngine.h"

#include <memory>
#include <optional>
#include <vector>

namespace qmx
{

/// Input is rendered in slices of at most the maximum frames per slice, as many as it takes, never of 0 frames.
class ConverterEngine : public RenderEngine
{
public:
    /// How frames get from the input to the output.
    struct Conversion {
        AudioStreamBasicDescription from, to;
        ChannelRoutes routes;
        /// Output frames per input frame; none for one frame in, one frame out.
        std::optional<Float64> ratio;
        UInt32 quality = VariableRateConverter::defaultQuality;
    };

    /// The conversion between two formats as they stand, rates included.
    static Conversion between(const AudioStreamBasicDescription& from, const AudioStreamBasicDescription& to);
    /// kAudioUnitErr_FormatNotSupported and nothing made where the formats or rates cannot be converted. `input`
    /// outlives what is made.
    static OSStatus make(const InputElement& input, UInt32 element, const Conversion& conversion, UInt32 maximumFrames,
                         std::unique_ptr<RenderEngine>& engine);
    ~ConverterEngine() override;

protected:
    OSStatus renderInto(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target) override;
    void restart() override;

private:
    class RateStage;

    ConverterEngine(const InputElement& input, UInt32 element, const Conversion& conversion, const PcmLayout& from,
                    const PcmLayout& to, UInt32 maximumFrames);
    OSStatus renderStraight(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target);

    InputSlice input_;
    std::unique_ptr<FrameConverter> straight_; ///< one frame in, one frame out
    std::unique_ptr<RateStage> rate_;          ///< otherwise
};

} // namespace qmx
