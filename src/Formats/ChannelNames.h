// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/AudioChannelLayout.h"

namespace qmx
{

/// The name of the constant for a channel layout, the first if several share a value; null for any other value.
const char* channelLayoutTagName(AudioChannelLayoutTag tag);
/// The name of the constant for a channel's place; null for any other value.
const char* channelLabelName(AudioChannelLabel label);

} // namespace qmx
