// SPDX-License-Identifier: MIT
#include "Formats/FileByteOrder.h"

namespace qmx
{

AudioStreamBasicDescription inByteOrderOfType(AudioStreamBasicDescription format, AudioFileTypeID type)
{
    const bool isLittle = type == kAudioFileWAVEType || type == kAudioFileRF64Type;
    if (isLittle && format.mFormatID == kAudioFormatLinearPCM)
        format.mFormatFlags &= ~kAudioFormatFlagIsBigEndian;
    return format;
}

} // namespace qmx
