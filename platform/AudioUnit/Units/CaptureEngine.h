// SPDX-License-Identifier: MIT
// Renders what a device captured: converts its frames and keeps them until they are asked for.
#pragma once

#include "AudioUnit/Units/CycleClient.h"
#include "AudioUnit/Units/RateStage.h"
#include "AudioUnit/Units/RenderEngine.h"

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

namespace qmx
{

/// Frames that are not rendered wait, up to those of two cycles; then the oldest go. All of it belongs to the I/O
/// thread of the device: a render on any other is refused.
class CaptureEngine final : public RenderEngine
{
public:
    struct Conversion {
        AudioStreamBasicDescription from, to;
        ChannelRoutes routes;
    };
    /// kAudioUnitErr_FormatNotSupported and nothing made where the formats or rates cannot be converted. Pieces of at
    /// most `maximumFrames` come in, slices of at most `sliceFrames` are offered.
    /// `endTime` counts the frames, lost ones included; it outlasts the engine.
    static OSStatus make(const Conversion& conversion, UInt32 maximumFrames, UInt32 sliceFrames,
                         std::atomic<SInt64>& endTime, std::unique_ptr<RenderEngine>& engine);

    /// Frames of another layout than the engine's, or more than its maximum, are ignored.
    void take(const CapturedFrames& captured);
    /// Frames of the next slice; 0 when none are left.
    UInt32 offered() const;
    /// Frames that are left, those of the next slice included.
    std::size_t left() const { return end_ - first_; }
    /// The time of the first frame that is left: the count of frames before it, lost ones included.
    AudioTimeStamp time() const;
    /// Leaves at most the last `frames` frames.
    void keepLast(std::size_t frames);

private:
    CaptureEngine(const Conversion& conversion, const PcmLayout& from, const PcmLayout& to, UInt32 maximumFrames,
                  UInt32 sliceFrames, std::atomic<SInt64>& endTime);
    bool mayRender() const override;
    OSStatus renderInto(const AudioTimeStamp& time, UInt32 frames, TargetFrames& target) override;
    void restart() override;
    void forget();
    TargetFrames& room(std::size_t frames);
    void keep(std::size_t frames);

    const PcmLayout from_;
    const Float64 rate_;  ///< Hz, of the frames kept
    const Float64 ratio_; ///< frames kept per frame captured
    const UInt32 sliceFrames_;
    const std::size_t blockFrames_;            ///< kept at once: those of a piece
    std::unique_ptr<FrameConverter> straight_; ///< at equal rates
    std::optional<RateStage> resampled_;       ///< otherwise
    SliceBuffers kept_;
    SourceFrames piece_;              ///< as it is taken
    TargetFrames room_;               ///< for it
    std::size_t first_ = 0, end_ = 0; ///< of the frames in `kept_` that are left
    std::size_t pieceRoom_ = 0;       ///< for the frames of the largest piece of this run
    std::atomic<SInt64>& endTime_;    ///< of the frame after those that are left
    SInt64 pieceTime_ = 0;            ///< of the first frame of the last piece
    UInt64 pieceHostTime_ = 0;
    std::atomic<std::thread::id> taker_;
};

} // namespace qmx
