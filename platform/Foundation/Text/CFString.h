// SPDX-License-Identifier: MIT
// The platform's string references: immutable, reference-counted UTF-8 text. A function with Create or Copy in its name
// gives a reference that the caller releases. Any thread.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Export.h"

#include <string>
#include <string_view>

struct CFString;
using CFStringRef = const CFString*;

QMX_EXPORT CFStringRef CFStringCreate(std::string_view text);
QMX_EXPORT CFStringRef CFRetain(CFStringRef string);
/// Null is ignored.
QMX_EXPORT void CFRelease(CFStringRef string);
/// The text; empty for null.
QMX_EXPORT std::string CFStringGetText(CFStringRef string);
