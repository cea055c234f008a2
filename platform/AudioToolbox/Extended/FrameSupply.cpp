// SPDX-License-Identifier: MIT
#include "AudioToolbox/Extended/FrameSupply.h"

#include "AudioToolbox/Conversion/PcmLayout.h"
#include "AudioToolbox/Extended/DecodedSupply.h"
#include "AudioToolbox/Extended/FileValues.h"
#include "AudioToolbox/Extended/LinearSupply.h"

namespace qmx
{

OSStatus FrameSupply::make(AudioFileID file, std::unique_ptr<FrameSupply>& supply)
{
    AudioStreamBasicDescription format;
    if (const OSStatus status = fileValue(file, kAudioFilePropertyDataFormat, format); status != noErr)
        return status;
    const auto layout = PcmLayout::of(format);
    if (!layout)
        return DecodedSupply::make(file, format, supply);
    supply = std::make_unique<LinearSupply>(file, withByteCounts(format, *layout));
    return noErr;
}

} // namespace qmx
