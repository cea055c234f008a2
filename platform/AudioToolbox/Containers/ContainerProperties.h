// SPDX-License-Identifier: MIT
// The properties of audio files, as far as they are the same for every container.
#pragma once

#include "AudioToolbox/Containers/Container.h"

namespace qmx
{

/// The size of the value, and whether it can be set where the file is open for writing. 'pty?' for what the file does
/// not have.
OSStatus containerPropertyInfo(Container& container, AudioFilePropertyID property, UInt32& size, bool& isWritable);
/// Copies the value; `size` is the room and becomes what was used.
OSStatus containerProperty(Container& container, AudioFilePropertyID property, UInt32& size, void* value);
OSStatus setContainerProperty(Container& container, AudioFilePropertyID property, UInt32 size, const void* value);

} // namespace qmx
