// SPDX-License-Identifier: MIT
// Names of the notifications about devices; each value is the constant's own name. Posted on the main thread. Senders:
// QMXAudioDevice::classObject() for the hardware as a whole, the QMXAudioDevice for the others.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

/// Devices came or went; the lists are up to date.
QMX_EXPORT extern const char* const QMXAudioHardwareDevicesDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioHardwareDefaultInputDeviceDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioHardwareDefaultOutputDeviceDidChangeNotification;
/// Any other change of the hardware, the default system output device included.
QMX_EXPORT extern const char* const QMXAudioHardwarePropertyDidChangeNotification;

/// Changes of a device. If no direction is named, a change that both directions share may be posted for each.
QMX_EXPORT extern const char* const QMXAudioDeviceStreamConfigurationDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceAvailableNominalSampleRatesDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceActualSampleRateDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDevicePreferredChannelsForStereoDidChangeNotification;
/// The format of a stream, what programs see of it or what the hardware is set to.
QMX_EXPORT extern const char* const QMXAudioDeviceStreamFormatDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceNominalSampleRateDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceStreamsDidChangeNotification;
/// Once per channel and per scale (linear, decibels).
QMX_EXPORT extern const char* const QMXAudioDeviceInputVolumeDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceOutputVolumeDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceTransportTypeDidChangeNotification;
/// The list of data sources.
QMX_EXPORT extern const char* const QMXAudioDeviceInputDataSourcesDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceOutputDataSourcesDidChangeNotification;
/// The selected data source.
QMX_EXPORT extern const char* const QMXAudioDeviceInputSourceDidChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceOutputSourceDidChangeNotification;

/// Never posted.
QMX_EXPORT extern const char* const QMXAudioHardwareDeviceAddedNotification;
QMX_EXPORT extern const char* const QMXAudioHardwareDeviceRemovedNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceDidOverloadChangeNotification;
QMX_EXPORT extern const char* const QMXAudioDeviceNoLongerValidNotification;
QMX_EXPORT extern const char* const QMXAudioDevicePropertyDidChangeNotification;
