// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/CaptureEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qmx
{
namespace
{

/// Room beyond the exact ratio, for what the filter gives in bursts.
constexpr std::size_t slackFrames = 64;

} // namespace

OSStatus CaptureEngine::make(const Conversion& conversion, UInt32 maximumFrames, UInt32 sliceFrames,
                             std::atomic<SInt64>& endTime, std::unique_ptr<RenderEngine>& engine)
{
    const auto from = PcmLayout::of(conversion.from), to = PcmLayout::of(conversion.to);
    constexpr Float64 highest = VariableRateConverter::highestRatio;
    const Float64 ratio = conversion.to.mSampleRate / conversion.from.mSampleRate;
    if (!from || !to || !(ratio <= highest && ratio >= 1 / highest))
        return kAudioUnitErr_FormatNotSupported;
    engine.reset(new CaptureEngine(conversion, *from, *to, maximumFrames, sliceFrames, endTime));
    return noErr;
}

CaptureEngine::CaptureEngine(const Conversion& conversion, const PcmLayout& from, const PcmLayout& to,
                             UInt32 maximumFrames, UInt32 sliceFrames, std::atomic<SInt64>& endTime)
    : RenderEngine(to, maximumFrames), from_(from), rate_(conversion.to.mSampleRate),
      ratio_(rate_ / conversion.from.mSampleRate), sliceFrames_(sliceFrames),
      blockFrames_(static_cast<std::size_t>(std::ceil(maximumFrames * ratio_)) + slackFrames),
      kept_(to, static_cast<UInt32>(2 * blockFrames_)), endTime_(endTime)
{
    if (ratio_ == 1)
        straight_ = FrameConverter::between(from, to, conversion.routes);
    else
        resampled_.emplace(from, to,
                           RateStage::Way{{ratio_, ratio_}, VariableRateConverter::defaultQuality, conversion.routes},
                           maximumFrames);
    piece_.planes.resize(1);
    piece_.planeFrameBytes = from.planeFrameBytes();
    room_.planes.resize(to.planes());
    room_.planeFrameBytes = to.planeFrameBytes();
}

void CaptureEngine::take(const CapturedFrames& captured)
{
    if (captured.layout != from_ || captured.frames > maximumFrames())
        return;
    taker_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    restartIfAsked();
    if (captured.isFirst)
        forget();
    endTime_ += std::llround(captured.lostFrames * ratio_);
    pieceTime_ = endTime_;
    pieceHostTime_ = captured.time.mHostTime;
    piece_.planes[0] = captured.data;
    piece_.frames = captured.frames;
    if (straight_) {
        straight_->convert(piece_, room(captured.frames), captured.frames);
        keep(captured.frames);
    } else {
        resampled_->feed(piece_, captured.frames);
        for (std::size_t made = blockFrames_; made == blockFrames_; keep(made))
            made = resampled_->produce(room(blockFrames_), blockFrames_);
    }
    const std::size_t slack = straight_ ? 0 : slackFrames;
    pieceRoom_ = std::max(pieceRoom_, static_cast<std::size_t>(std::ceil(captured.frames * ratio_)) + slack);
    keepLast(2 * pieceRoom_);
}

/// Where `frames` frames go to; the oldest make room for them.
TargetFrames& CaptureEngine::room(std::size_t frames)
{
    const std::size_t frameBytes = room_.planeFrameBytes;
    if (end_ + frames > kept_.room()) {
        const std::size_t stay = std::min(left(), kept_.room() - frames);
        for (std::size_t i = 0; i < room_.planes.size(); ++i)
            std::memmove(kept_.plane(i), kept_.plane(i) + (end_ - stay) * frameBytes, stay * frameBytes);
        first_ = 0;
        end_ = stay;
    }
    room_.frames = frames;
    for (std::size_t i = 0; i < room_.planes.size(); ++i)
        room_.planes[i] = kept_.plane(i) + end_ * frameBytes;
    return room_;
}

void CaptureEngine::keep(std::size_t frames)
{
    end_ += frames;
    endTime_ += static_cast<SInt64>(frames);
}

UInt32 CaptureEngine::offered() const
{
    return static_cast<UInt32>(std::min<std::size_t>(left(), sliceFrames_));
}

AudioTimeStamp CaptureEngine::time() const
{
    AudioTimeStamp time;
    const SInt64 first = endTime_ - static_cast<SInt64>(left());
    time.mSampleTime = static_cast<Float64>(first);
    const SInt64 sincePiece = std::llround(static_cast<Float64>(first - pieceTime_) * 1e9 / rate_);
    time.mHostTime = pieceHostTime_ + static_cast<UInt64>(sincePiece); // also backwards, by wrapping
    time.mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid;
    return time;
}

void CaptureEngine::keepLast(std::size_t frames)
{
    first_ = end_ - std::min(left(), frames);
}

bool CaptureEngine::mayRender() const
{
    return taker_.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

OSStatus CaptureEngine::renderInto(const AudioTimeStamp&, UInt32 frames, TargetFrames& target)
{
    const std::size_t count = std::min<std::size_t>(left(), frames), frameBytes = target.planeFrameBytes;
    for (std::size_t i = 0; i < target.planes.size(); ++i) {
        std::memcpy(target.planes[i], kept_.plane(i) + first_ * frameBytes, count * frameBytes);
        kept_.silence(target.planes[i] + count * frameBytes, (frames - count) * frameBytes);
    }
    first_ += count;
    return count > 0 ? noErr : kAudioUnitErr_NoConnection;
}

/// The frames of an earlier run are no part of what comes.
void CaptureEngine::forget()
{
    if (resampled_)
        resampled_->restart();
    keepLast(0);
    pieceRoom_ = 0;
}

void CaptureEngine::restart()
{
    forget();
    endTime_ = 0;
}

} // namespace qmx
