// SPDX-License-Identifier: MIT
// The library's main thread within a Qt event loop. Header only: the program links Qt 5 or 6.
#pragma once

#include <QMXCoreAudio/Foundation/MainThread/RunLoop.h>

#include <QObject>
#include <QSocketNotifier>

namespace qmx
{

/// From now on the thread's event loop delivers the library's timers, notifications and callbacks, until the notifier
/// is deleted, by the program or by `parent`. Main thread: the one that runs the loop. Once per program.
inline QSocketNotifier* attachToQt(QObject* parent = nullptr)
{
    auto* const notifier = new QSocketNotifier(RunLoop::main().fileDescriptor(), QSocketNotifier::Read, parent);
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] { RunLoop::main().runOnce(); });
    return notifier;
}

} // namespace qmx
