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

LastFailure::Operation::Operation(LastFailure& failure) : failure_(failure)
{
    const std::scoped_lock lock(failure_.lock_);
    if (failure_.operations_++ > 0)
        return;
    failure_.status_ = noErr;
    failure_.sentence_.clear();
}

LastFailure::Operation::~Operation()
{
    const std::scoped_lock lock(failure_.lock_);
    --failure_.operations_;
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
