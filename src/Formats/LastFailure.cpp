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

LastFailure::Operation::Operation(LastFailure& failure) : failure_(failure)
{
    const std::scoped_lock lock(failure.lock_);
    if (failure.operations_++ > 0)
        return;
    failure.status_ = noErr;
    failure.sentence_.clear();
}

LastFailure::Operation::~Operation()
{
    const std::scoped_lock lock(failure_.lock_);
    --failure_.operations_;
}

} // namespace qmx
