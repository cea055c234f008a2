// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Tracks/QMXAudioPause.h>

#include <string>

namespace example
{

/// Where the panel lies in the drawing, in pixels, and how many frames it spans.
struct PanelPlace {
    double left = 0;
    double right = 0;
    double top = 0;
    double bottom = 0;
    double frames = 0;
    double sampleRate = 0;
};

/// What a search by noise floor saw, as a part of an SVG document: the level, the floor, and each pause with its
/// strength, the stronger the darker.
std::string drawLevelPanel(const QMXAudioPauses& pauses, const PanelPlace& place);

} // namespace example
