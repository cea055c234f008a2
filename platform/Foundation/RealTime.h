// SPDX-License-Identifier: MIT
// Marks the calling thread while it must meet a deadline or runs a callback.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

namespace qmx
{

/// While one exists, the calling thread works in real time: it must not allocate, free, lock, log or use a file, and
/// calls that would wait elsewhere return at once. Nests. A device's I/O thread holds one during each cycle.
class QMX_EXPORT RealTimeScope
{
public:
    RealTimeScope() noexcept;
    ~RealTimeScope();
    RealTimeScope(const RealTimeScope&) = delete;
    RealTimeScope& operator=(const RealTimeScope&) = delete;
};

/// Whether the calling thread is inside a RealTimeScope. Allocates nothing, so allocators may call it.
QMX_EXPORT bool isRealTime() noexcept;

/// While one exists, the calling thread is inside an I/O, render or input callback, in real time or not. Calls that
/// would wait for a cycle in flight do not wait there, because that cycle may be the caller's own. Nests.
class QMX_EXPORT CallbackScope
{
public:
    CallbackScope() noexcept;
    ~CallbackScope();
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;
};

/// Whether the calling thread is inside a CallbackScope.
QMX_EXPORT bool isInsideCallback() noexcept;

/// Whether the calling thread may wait for others: it neither works in real time nor is inside a callback.
QMX_EXPORT bool mayWait() noexcept;

} // namespace qmx
