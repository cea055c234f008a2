// SPDX-License-Identifier: MIT
// Remembers Ctrl-C and SIGTERM instead of ending the program at once.
#pragma once

namespace example
{

/// From now on SIGINT and SIGTERM are remembered, and `alsoCall` is called in the handler: it must be safe there.
void catchInterrupts(void (*alsoCall)() noexcept);

bool isInterrupted();

/// If a signal was caught, ends the program by a silent Failure with its exit status (130 for Ctrl-C).
void endIfInterrupted();

} // namespace example
