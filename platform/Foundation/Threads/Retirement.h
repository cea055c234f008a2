// SPDX-License-Identifier: MIT
// Frees objects for real-time threads, which must not free them themselves.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <memory>

namespace qmx
{

/// Base of objects that a real-time thread can retire. The destructor then runs on a thread made for that, or in
/// waitUntilRetired().
class QMX_EXPORT Retirable
{
public:
    Retirable();
    virtual ~Retirable();
    Retirable(const Retirable&) = delete;
    Retirable& operator=(const Retirable&) = delete;

private:
    friend struct RetirementList;
    Retirable* next_ = nullptr;
};

/// Releases a last reference: made beforehand, filled and retired on the real-time thread.
struct QMX_EXPORT RetirableReference final : Retirable {
    std::shared_ptr<const void> reference;
};

/// Takes ownership of `object` (null is ignored); another thread destroys it soon. Neither allocates, frees, locks nor
/// waits. Any thread.
QMX_EXPORT void retire(Retirable* object) noexcept;

/// Destroys `object` (null is ignored) at once or, inside a callback, retires it. For destructors that wait for
/// callbacks.
QMX_EXPORT void destroyOutsideCallbacks(Retirable* object);

/// Whether the thread that destroys retired objects exists; makes it if it does not. Without it, do not wait for the
/// end of an object that a real-time thread retires.
QMX_EXPORT bool canRetire();

/// Returns when all objects retired before are destroyed; the calling thread destroys them if the system has no thread
/// left for it. Not inside a callback, nor from the destructor of a retired object.
QMX_EXPORT void waitUntilRetired();

} // namespace qmx
