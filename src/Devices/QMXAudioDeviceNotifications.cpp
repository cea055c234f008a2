// SPDX-License-Identifier: MIT
#include "Devices/QMXAudioDeviceNotifications.h"

const char* const QMXAudioHardwareDevicesDidChangeNotification = "QMXAudioHardwareDevicesDidChangeNotification";
const char* const QMXAudioHardwareDefaultInputDeviceDidChangeNotification =
    "QMXAudioHardwareDefaultInputDeviceDidChangeNotification";
const char* const QMXAudioHardwareDefaultOutputDeviceDidChangeNotification =
    "QMXAudioHardwareDefaultOutputDeviceDidChangeNotification";
const char* const QMXAudioHardwarePropertyDidChangeNotification = "QMXAudioHardwarePropertyDidChangeNotification";
const char* const QMXAudioDeviceStreamConfigurationDidChangeNotification =
    "QMXAudioDeviceStreamConfigurationDidChangeNotification";
const char* const QMXAudioDeviceAvailableNominalSampleRatesDidChangeNotification =
    "QMXAudioDeviceAvailableNominalSampleRatesDidChangeNotification";
const char* const QMXAudioDeviceActualSampleRateDidChangeNotification =
    "QMXAudioDeviceActualSampleRateDidChangeNotification";
const char* const QMXAudioDevicePreferredChannelsForStereoDidChangeNotification =
    "QMXAudioDevicePreferredChannelsForStereoDidChangeNotification";
const char* const QMXAudioDeviceStreamFormatDidChangeNotification = "QMXAudioDeviceStreamFormatDidChangeNotification";
const char* const QMXAudioDeviceNominalSampleRateDidChangeNotification =
    "QMXAudioDeviceNominalSampleRateDidChangeNotification";
const char* const QMXAudioDeviceStreamsDidChangeNotification = "QMXAudioDeviceStreamsDidChangeNotification";
const char* const QMXAudioDeviceInputVolumeDidChangeNotification = "QMXAudioDeviceInputVolumeDidChangeNotification";
const char* const QMXAudioDeviceOutputVolumeDidChangeNotification = "QMXAudioDeviceOutputVolumeDidChangeNotification";
const char* const QMXAudioDeviceTransportTypeDidChangeNotification = "QMXAudioDeviceTransportTypeDidChangeNotification";
const char* const QMXAudioDeviceInputDataSourcesDidChangeNotification =
    "QMXAudioDeviceInputDataSourcesDidChangeNotification";
const char* const QMXAudioDeviceOutputDataSourcesDidChangeNotification =
    "QMXAudioDeviceOutputDataSourcesDidChangeNotification";
const char* const QMXAudioDeviceInputSourceDidChangeNotification = "QMXAudioDeviceInputSourceDidChangeNotification";
const char* const QMXAudioDeviceOutputSourceDidChangeNotification = "QMXAudioDeviceOutputSourceDidChangeNotification";
const char* const QMXAudioHardwareDeviceAddedNotification = "QMXAudioHardwareDeviceAddedNotification";
const char* const QMXAudioHardwareDeviceRemovedNotification = "QMXAudioHardwareDeviceRemovedNotification";
const char* const QMXAudioDeviceDidOverloadChangeNotification = "QMXAudioDeviceDidOverloadChangeNotification";
const char* const QMXAudioDeviceNoLongerValidNotification = "QMXAudioDeviceNoLongerValidNotification";
const char* const QMXAudioDevicePropertyDidChangeNotification = "QMXAudioDevicePropertyDidChangeNotification";
