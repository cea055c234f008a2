// SPDX-License-Identifier: MIT
// The platform's string references: immutable, reference-counted UTF-8 text. The caller releases the references that
// functions with Create or Copy in their names return. Any thread.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

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
