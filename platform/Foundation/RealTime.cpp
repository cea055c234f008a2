// SPDX-License-Identifier: MIT
#include "Foundation/RealTime.h"

namespace qmx
{
namespace
{

// Storage that every thread has from its start, because the first use of other thread-local storage may allocate.
[[gnu::tls_model("initial-exec")]] thread_local int realTimeDepth = 0;
[[gnu::tls_model("initial-exec")]] thread_local int callbackDepth = 0;

} // namespace

RealTimeScope::RealTimeScope() noexcept
{
    ++realTimeDepth;
}

RealTimeScope::~RealTimeScope()
{
    --realTimeDepth;
}

bool isRealTime() noexcept
{
    return realTimeDepth > 0;
}

CallbackScope::CallbackScope() noexcept
{
    ++callbackDepth;
}

CallbackScope::~CallbackScope()
{
    --callbackDepth;
}

bool isInsideCallback() noexcept
{
    return callbackDepth > 0;
}

bool mayWait() noexcept
{
    return !isRealTime() && !isInsideCallback();
}

} // namespace qmx
