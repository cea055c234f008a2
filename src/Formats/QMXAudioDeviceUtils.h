// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudio/AudioHardware.h"
#include "Foundation/Export.h"
#include "Foundation/Object.h"

/// Texts for people and logs from the platform's codes. Any thread.
class QMX_EXPORT QMXAudioDeviceUtils : public qmx::Object
{
public:
    /// What a status of the hardware layer means; a status without a text shows as number and four characters.
    static std::string errorMessage(OSStatus status);
    /// The same, followed by the property's name in parentheses.
    static std::string errorMessage_forProperty(OSStatus status, UInt32 propertyID);
    /// A coding's name, "Unknown format" where it has none.
    static std::string formatNameForID(AudioFormatID formatID);
    /// The name of the constant for a property of the hardware, of a device or of a stream. A code that a device and a
    /// stream share gives the device's name.
    static std::string propertyName(UInt32 propertyID);
};
