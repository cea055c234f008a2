// SPDX-License-Identifier: MIT
// The delegate's empty operations, and the device's that forward to them.
#include "Devices/QMXAudioDeviceDelegate.h"

#include "Devices/QMXAudioDevice.h"

QMXAudioDeviceDelegate::~QMXAudioDeviceDelegate() = default;

void QMXAudioDeviceDelegate::inputStreamFormatDidChange(const qmx::Notification& /*notification*/) {}
void QMXAudioDeviceDelegate::outputStreamFormatDidChange(const qmx::Notification& /*notification*/) {}
void QMXAudioDeviceDelegate::inputDataSourceDidChange(const qmx::Notification& /*notification*/) {}
void QMXAudioDeviceDelegate::outputDataSourceDidChange(const qmx::Notification& /*notification*/) {}
void QMXAudioDeviceDelegate::inputVolumeDidChange(const qmx::Notification& /*notification*/) {}
void QMXAudioDeviceDelegate::outputVolumeDidChange(const qmx::Notification& /*notification*/) {}

void QMXAudioDevice::tellDelegate(DelegateMethod method, const qmx::Notification& notification)
{
    if (const auto present = delegate())
        (*present.*method)(notification);
}

void QMXAudioDevice::inputStreamFormatDidChange(const qmx::Notification& notification)
{
    tellDelegate(&QMXAudioDeviceDelegate::inputStreamFormatDidChange, notification);
}

void QMXAudioDevice::outputStreamFormatDidChange(const qmx::Notification& notification)
{
    tellDelegate(&QMXAudioDeviceDelegate::outputStreamFormatDidChange, notification);
}

void QMXAudioDevice::inputDataSourceDidChange(const qmx::Notification& notification)
{
    tellDelegate(&QMXAudioDeviceDelegate::inputDataSourceDidChange, notification);
}

void QMXAudioDevice::outputDataSourceDidChange(const qmx::Notification& notification)
{
    tellDelegate(&QMXAudioDeviceDelegate::outputDataSourceDidChange, notification);
}

void QMXAudioDevice::inputVolumeDidChange(const qmx::Notification& notification)
{
    tellDelegate(&QMXAudioDeviceDelegate::inputVolumeDidChange, notification);
}

void QMXAudioDevice::outputVolumeDidChange(const qmx::Notification& notification)
{
    tellDelegate(&QMXAudioDeviceDelegate::outputVolumeDidChange, notification);
}
