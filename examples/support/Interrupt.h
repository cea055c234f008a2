// SPDX-License-Identifier: MIT
// Ctrl-C and a polite kill: remembered instead of ending the program on the spot.
#pragma once

namespace example
{

/// From now on SIGINT and SIGTERM are remembered, and `alsoCall` is called in the handler: it must be safe there.
void catchInterrupts(void (*alsoCall)() noexcept);

bool isInterrupted();

/// Ends the program by a silent Failure with the exit status of the signal (130 for Ctrl-C) when one was caught.
void endIfInterrupted();

} // namespace example
