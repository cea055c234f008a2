// SPDX-License-Identifier: MIT
// The properties of audio files, as far as they are the same for every container.
#pragma once

#include "AudioToolbox/Containers/Container.h"

namespace qmx
{

/// The size of the value, and whether it can be set if the file is open for writing. 'pty?' if the file lacks the
/// property.
OSStatus containerPropertyInfo(Container& container, AudioFilePropertyID property, UInt32& size, bool& isWritable);
/// Copies the value; `size` is the room and becomes the bytes used.
OSStatus containerProperty(Container& container, AudioFilePropertyID property, UInt32& size, void* value);
OSStatus setContainerProperty(Container& container, AudioFilePropertyID property, UInt32 size, const void* value);

} // namespace qmx
