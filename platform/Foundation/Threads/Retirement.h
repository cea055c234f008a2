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

/// For whoever is about to wait for the end of something that was retired: where the system has no thread left for
/// that, it is destroyed here. Not inside a callback, nor with a lock held that such a destructor takes.
QMX_EXPORT void helpToRetire();

/// Returns when everything that was retired before is destroyed. Not inside a callback, nor from such a destructor.
QMX_EXPORT void waitUntilRetired();

} // namespace qmx
