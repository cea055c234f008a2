// SPDX-License-Identifier: MIT
// The progress of the auto-definer's run: one per process, touched only by the thread of the run.
#pragma once

#include "CoreAudioTypes/AudioBuffers.h"
#include "CoreAudioTypes/MacTypes.h"

#include <memory>

class QMXAudioTrackAutoDefinerDelegate;

namespace qmx::definerProgress
{

void setDelegate(std::shared_ptr<QMXAudioTrackAutoDefinerDelegate> delegate);

/// Sends the delegate `value`.
void report(float value);

/// Hands the delegate a block of interleaved samples.
void show(std::span<const Float32> samples, UInt32 channels);

/// Makes one unit of work worth 1 / (2 * blockCount).
void setBlockCount(UInt32 blockCount);

/// One more unit of work is done.
void advance();

/// The run is over: back to 0, and a final report of 1.
void finish();

} // namespace qmx::definerProgress
