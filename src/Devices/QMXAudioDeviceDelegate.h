// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/MainThread/NotificationCenter.h>

/// Receives a device's changes through the device's operations of the same names. Programs derive from it; operations
/// that are not overridden do nothing.
class QMX_EXPORT QMXAudioDeviceDelegate
{
public:
    virtual ~QMXAudioDeviceDelegate();

    virtual void inputStreamFormatDidChange(const qmx::Notification& notification);
    virtual void outputStreamFormatDidChange(const qmx::Notification& notification);
    virtual void inputDataSourceDidChange(const qmx::Notification& notification);
    virtual void outputDataSourceDidChange(const qmx::Notification& notification);
    virtual void inputVolumeDidChange(const qmx::Notification& notification);
    virtual void outputVolumeDidChange(const qmx::Notification& notification);
};
