// SPDX-License-Identifier: MIT
// The properties of an extended audio file by their codes and bytes.
#pragma once

#include "AudioToolbox/Extended/ExtendedFile.h"

namespace qmx
{

/// See the functions of ExtAudioFile.h; either output may be null.
OSStatus extendedPropertyInfo(ExtendedFile& file, ExtAudioFilePropertyID property, UInt32* size, Boolean* isWritable);
OSStatus extendedProperty(ExtendedFile& file, ExtAudioFilePropertyID property, UInt32& size, void* value);
OSStatus setExtendedProperty(ExtendedFile& file, ExtAudioFilePropertyID property, UInt32 size, const void* value);

/// A copy of a layout with all its descriptions.
LayoutBlock layoutBlock(const AudioChannelLayout& layout);

} // namespace qmx
