// SPDX-License-Identifier: MIT
#pragma once

#include "support/Failure.h"

namespace example
{

/// The Failure of a program that finds no device; `missing` says which kind there is none of.
Failure noDevice(const std::string& missing);

} // namespace example
