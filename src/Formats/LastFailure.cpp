// SPDX-License-Identifier: MIT
#include "Formats/LastFailure.h"

#include <utility>

namespace qmx
{

void LastFailure::set(OSStatus status, std::string sentence)
{
    const std::scoped_lock lock(lock_);
    status_ = status;
    sentence_ = std::move(sentence);
}

OSStatus LastFailure::status() const
{
    const std::scoped_lock lock(lock_);
    return status_;
}

std::string LastFailure::sentence() const
{
    const std::scoped_lock lock(lock_);
    return sentence_;
}

} // namespace qmx
