// SPDX-License-Identifier: MIT
#include "Tracks/DefinerProgress.h"

#include "Tracks/QMXAudioTrackAutoDefiner.h"

namespace qmx::definerProgress
{
namespace
{
std::shared_ptr<QMXAudioTrackAutoDefinerDelegate> progressCallbackDelegate;
float progressValue = 0;
float progressValueIncrementor = 0;
} // namespace

void setDelegate(std::shared_ptr<QMXAudioTrackAutoDefinerDelegate> delegate)
{
    progressCallbackDelegate = std::move(delegate);
}

void report(float value)
{
    // held for the call, so that the delegate may replace itself
    if (const auto delegate = progressCallbackDelegate)
        delegate->autoDefineProgress(value);
}

void show(std::span<const Float32> samples, UInt32 channels)
{
    if (const auto delegate = progressCallbackDelegate)
        delegate->autoDefineReadSamples(samples, channels);
}

void setBlockCount(UInt32 blockCount)
{
    progressValueIncrementor = blockCount == 0 ? 0.0F : 1.0F / (2.0F * static_cast<float>(blockCount));
}

void advance()
{
    progressValue += progressValueIncrementor;
    report(progressValue);
}

void finish()
{
    progressValue = 0;
    report(1);
}

} // namespace qmx::definerProgress
