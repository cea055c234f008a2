// SPDX-License-Identifier: MIT
// record-in-glib FILE: records in a GLib loop, with a meter, until Ctrl-C or until the device is unplugged.
#include <QMXCoreAudio/Front/MainLoopGLib.h>
#include <QMXCoreAudio/qmx.h>
#include <glib-unix.h>
#include <iostream>
int main(int argumentCount, char** arguments)
{
    const auto fail = [](const qmx::Error& why) { return std::cerr << why.text() << '\n', 1; };
    const auto device = qmx::defaultInput();
    if (argumentCount != 2 || !device)
        return device ? 2 : fail(device.error());
    auto recorder = qmx::Recorder::start(*device, arguments[1], {.meters = true});
    if (!recorder)
        return fail(recorder.error());
    qmx::attachToGLib();
    const auto meter = [](gpointer recording) -> gboolean {
        for (const auto& channel : static_cast<qmx::Recorder*>(recording)->levels())
            std::cout << channel.truePeak << " dB\t";
        return std::cout << std::endl, G_SOURCE_CONTINUE;
    };
    const auto stop = [](gpointer recording) -> gboolean { return !static_cast<qmx::Recorder*>(recording)->stop(); };
    g_timeout_add(100, meter, &*recorder);
    g_unix_signal_add(SIGINT, stop, &*recorder);
    std::optional<int> status;
    recorder->onEnd([&](const qmx::Error& why) { status = why.isCancelled() ? 0 : fail(why); });
    while (!status)
        g_main_context_iteration(nullptr, TRUE);
    return *status;
}
