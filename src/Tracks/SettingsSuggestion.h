// SPDX-License-Identifier: MIT
#pragma once

#include "Tracks/QMXAudioPause.h"
#include "Tracks/QMXAudioTrackAutoDefiner.h"

class QMXAudioFile;

namespace qmx
{

/// The settings with which the search by crossings comes nearest to the dividing pauses: it finds most of them and
/// least besides; among equals those nearest to the defaults. Reads the file from where it stands to its end, within a
/// run of the auto-definer.
QMXAutoDefinerSettings suggestSettings(QMXAudioFile& file, const QMXAudioPauses& pauses);

} // namespace qmx
