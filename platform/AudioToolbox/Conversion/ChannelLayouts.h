// SPDX-License-Identifier: MIT
// What channel layouts mean for the conversion: which channel is which, and how surround is mixed to stereo.
#pragma once

#include "AudioToolbox/Conversion/ChannelMixer.h"
#include "CoreAudioTypes/AudioChannelLayout.h"

#include <optional>
#include <span>
#include <vector>

namespace qmx
{

/// The labels of the channels in order, from a layout record of any length in memory; empty if it does not state them.
std::vector<AudioChannelLabel> channelLabels(std::span<const std::byte> layout);

/// How channels with these labels become others: surround to left and right, none for all else. The front channels keep
/// their side, the centre goes to both at -3 dB, surround channels to theirs at -3 dB, a centre surround to both at -6
/// dB; low-frequency effects are left out. The sum is scaled so that it never exceeds full scale.
std::optional<ChannelRoutes> foldDown(std::span<const AudioChannelLabel> from, std::span<const AudioChannelLabel> to);

} // namespace qmx
