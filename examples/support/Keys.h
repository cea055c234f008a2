// SPDX-License-Identifier: MIT
#pragma once

#include <termios.h>
#include <vector>

namespace example
{

enum class Key { space, left, right, up, down, quit };

/// The keys that are pressed on the terminal that is standard input, unseen; elsewhere there are none.
/// The terminal is as before in the end.
class Keys
{
public:
    Keys();
    ~Keys();
    Keys(const Keys&) = delete;
    Keys& operator=(const Keys&) = delete;

    /// To poll for; -1 without a terminal.
    int fileDescriptor() const;
    /// The keys that wait, in order, without those that have no meaning.
    std::vector<Key> pressed() const;

private:
    bool isTerminal_;
    termios before_{};
};

} // namespace example
