// SPDX-License-Identifier: MIT
#include "Formats/LastFailure.h"

#include "Formats/FileFailureReason.h"
#include "Foundation/Memory.h"

#include <utility>

namespace qmx
{

void LastFailure::set(OSStatus status, std::string sentence)
{
    const std::scoped_lock lock(lock_);
    status_ = status;
    sentence_ = std::move(sentence);
}

OSStatus LastFailure::keepFirst(OSStatus status, std::string_view subject, std::string_view what,
                                std::string_view reason) noexcept
{
    if (status == noErr || this->status() != noErr)
        return status;
    std::string sentence;
    (void)withinMemory([&] { // without memory, no sentence is kept
        std::string whole(subject);
        whole.append(" ").append(what).append(": ");
        sentence = reason.empty() ? whole + fileFailureReason(status) : whole.append(reason);
    });
    set(status, std::move(sentence));
    return status;
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
