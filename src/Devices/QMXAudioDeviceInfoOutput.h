// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioChannelLayout.h>
#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <string>

class QMXAudioDevice;
class QMXAudioStream;
class QMXAudioStreamBasicDescription;

/// Human-readable reports about devices, of many lines each. Any thread but the real-time ones.
class QMX_EXPORT QMXAudioDeviceInfoOutput : public qmx::Object
{
public:
    /// The properties of the device as a whole.
    static std::string printGlobalDeviceInfo(QMXAudioDevice& device);
    /// The properties of its inputs or outputs.
    static std::string printDirectionalDeviceInfo_isInput(QMXAudioDevice& device, bool isInput);
    /// One stream with all formats it can be set to.
    static std::string printStreamInfo(const QMXAudioStream& stream);
    /// All fields of a format; empty for null.
    static std::string printStreamBasicInfo(const QMXAudioStreamBasicDescription* format);
    /// One line per flag that is set.
    static std::string printStreamFormatFlagNames(AudioFormatFlags formatFlags);
    /// A layout with its descriptions; empty for null.
    static std::string printChannelLayoutInfo(const AudioChannelLayout* layout);
    /// The name of the constant, the first if several share a value; "Unknown Channel Layout" for any other value.
    static std::string channelLayoutTagName(AudioChannelLayoutTag tag);
    /// The name of the constant; "Unknown Audio Channel Label" for any other value.
    static std::string channelLabelName(AudioChannelLabel label);
};
