// SPDX-License-Identifier: MIT
// Where a thread in real time leaves what it must not free itself.
#pragma once

#include "Foundation/Export.h"

#include <memory>

namespace qmx
{

/// Something that can be given up on a real-time thread; derive from it. Its destructor runs on a thread made for that,
/// or where somebody waits for it.
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

/// A last reference to be given up: made beforehand, filled and retired on the real-time thread.
struct QMX_EXPORT RetirableReference final : Retirable {
    std::shared_ptr<const void> reference;
};

/// Takes `object` (null is ignored) and has it destroyed soon on another thread. Neither allocates, frees, locks nor
/// waits: any thread.
QMX_EXPORT void retire(Retirable* object) noexcept;

/// Destroys `object` (null is ignored) at once; inside a callback retires it: for destructors that wait for callbacks.
QMX_EXPORT void destroyOutsideCallbacks(Retirable* object);

/// Whether the thread that destroys what is retired exists; it is made where it does not. Without it nobody may wait
/// for the end of what a real-time thread retires.
QMX_EXPORT bool canRetire();

/// Returns when everything that was retired before is destroyed, by the calling thread where the system has no other
/// left for it. Not inside a callback, nor from such a destructor.
QMX_EXPORT void waitUntilRetired();

} // namespace qmx
