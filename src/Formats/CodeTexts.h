// SPDX-License-Identifier: MIT
// Tables from the platform's codes to texts.
#pragma once

#include "CoreAudioTypes/MacTypes.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace qmx
{

struct CodeText {
    UInt32 code;
    const char* text;
};

/// The code's text, null if the table has none.
template <std::size_t count> const char* findText(const CodeText (&table)[count], UInt32 code)
{
    const CodeText* entry = std::ranges::find(table, code, &CodeText::code);
    return entry == std::end(table) ? nullptr : entry->text;
}

} // namespace qmx

/// A row of a constant and its own name.
#define QMX_NAMED(constant)                                                                                            \
    {                                                                                                                  \
        constant, #constant                                                                                            \
    }
