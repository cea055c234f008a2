// SPDX-License-Identifier: MIT
// Debugging prints of a bare format record to standard output. Any thread but the real-time ones.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// Prints the record under a title; a null record prints one line that says so.
QMX_EXPORT void D_PrintStreamDesc(const AudioStreamBasicDescription* record, const char* title);
/// The same without a title.
QMX_EXPORT void PrintStreamDesc(const AudioStreamBasicDescription* record);
