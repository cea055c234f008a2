// SPDX-License-Identifier: MIT
#include "support/Interrupt.h"

#include "support/Failure.h"

#include <atomic>
#include <csignal>

namespace example
{
namespace
{

std::atomic<int> caughtSignal{0};
std::atomic<void (*)() noexcept> handlerCall{nullptr};
static_assert(decltype(caughtSignal)::is_always_lock_free && decltype(handlerCall)::is_always_lock_free);

extern "C" void rememberSignal(int signal)
{
    caughtSignal.store(signal, std::memory_order_relaxed);
    if (const auto call = handlerCall.load(std::memory_order_relaxed))
        call();
}

} // namespace

void catchInterrupts(void (*alsoCall)() noexcept)
{
    handlerCall.store(alsoCall);
    struct sigaction action {
    };
    action.sa_handler = rememberSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool isInterrupted()
{
    return caughtSignal.load(std::memory_order_relaxed) != 0;
}

void endIfInterrupted()
{
    if (isInterrupted())
        throw Failure{"", 128 + caughtSignal.load(std::memory_order_relaxed)};
}

} // namespace example
