// SPDX-License-Identifier: MIT
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <mutex>
#include <string>
#include <string_view>

namespace qmx
{

/// What failed last in an object's work: a status, and a sentence for people. Any thread but the real-time ones.
class LastFailure
{
public:
    void set(OSStatus status, std::string sentence);
    void clear() { set(noErr, {}); }

    /// Keeps `status` and the sentence "<subject> <what>: <reason>" (none when memory runs out). Does nothing for
    /// noErr, or if a failure is kept already. The reason is that of the status unless another is given. Returns
    /// `status`.
    OSStatus keepFirst(OSStatus status, std::string_view subject, std::string_view what,
                       std::string_view reason = {}) noexcept;

    /// The same with what failed in another object, if anything did: its own status and sentence.
    template <class Other> OSStatus keepFirstOf(const Other& other)
    {
        if (status() == noErr && other.lastStatus() != noErr)
            set(other.lastStatus(), other.lastError());
        return other.lastStatus();
    }

    /// Marks an operation of the object. The outermost one forgets the last failure; one inside another is a part of
    /// it.
    class Operation
    {
    public:
        explicit Operation(LastFailure& failure);
        ~Operation();
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;

    private:
        LastFailure& failure_;
    };

    /// noErr while nothing failed.
    OSStatus status() const;
    /// Empty while nothing failed.
    std::string sentence() const;

private:
    mutable std::mutex lock_;
    OSStatus status_ = noErr;
    std::string sentence_;
    int operations_ = 0; // nested ones
};

} // namespace qmx
