// SPDX-License-Identifier: MIT
// Linked into a program with a GLib loop, unplugs the virtual input after ten cycles.
#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>

#include <glib.h>

namespace
{

gboolean unplug(gpointer /*unused*/)
{
    auto& hardware = qmx::VirtualHardware::shared();
    const AudioDeviceID input = hardware.devices().front();
    return hardware.cycleCount(input) < 10 || hardware.removeDevice(input) != noErr;
}

[[maybe_unused]] const guint timer = g_timeout_add(10, unplug, nullptr);

} // namespace
