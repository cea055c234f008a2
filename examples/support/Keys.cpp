// SPDX-License-Identifier: MIT
#include "support/Keys.h"

#include <array>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace example
{
namespace
{

std::optional<Key> arrow(char last)
{
    constexpr std::string_view letters = "ABCD";
    constexpr Key keys[] = {Key::up, Key::down, Key::right, Key::left};
    const auto index = letters.find(last);
    return index < letters.size() ? std::optional(keys[index]) : std::nullopt;
}

std::optional<Key> character(char typed)
{
    if (typed == ' ')
        return Key::space;
    return typed == 'q' ? std::optional(Key::quit) : std::nullopt;
}

} // namespace

Keys::Keys() : isTerminal_(isatty(STDIN_FILENO) == 1 && tcgetattr(STDIN_FILENO, &before_) == 0)
{
    if (!isTerminal_)
        return;
    termios unseen = before_;
    unseen.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &unseen);
}

Keys::~Keys()
{
    if (isTerminal_)
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

int Keys::fileDescriptor() const
{
    return isTerminal_ ? STDIN_FILENO : -1;
}

std::vector<Key> Keys::pressed() const
{
    std::array<char, 64> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0)
        return {Key::quit};
    std::vector<Key> keys;
    for (std::string_view rest(bytes.data(), static_cast<std::size_t>(count)); !rest.empty();) {
        const bool isArrow = rest.size() >= 3 && rest.starts_with("\x1b[");
        if (const auto key = isArrow ? arrow(rest[2]) : character(rest[0]))
            keys.push_back(*key);
        rest.remove_prefix(isArrow ? 3 : 1);
    }
    return keys;
}

} // namespace example
