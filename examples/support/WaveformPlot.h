// SPDX-License-Identifier: MIT
#pragma once

#include "support/Envelope.h"

#include <QMXCoreAudio/Tracks/QMXAudioPause.h>

#include <memory>
#include <string>
#include <vector>

namespace example
{

/// The number of columns of a waveform drawing.
constexpr std::size_t waveformColumns = 1120;

/// The contents of a drawing.
struct WaveformPlot {
    struct Track {
        UInt64 begin = 0; ///< frames
        UInt64 end = 0;
    };

    std::string title;
    std::string subtitle;
    double sampleRate = 0; ///< frames per second
    UInt64 frames = 0;
    std::vector<Track> tracks;
    std::shared_ptr<const QMXAudioPauses> pauses; ///< null where they were not searched for
};

/// The waveform as an SVG document, with the tracks as bands; light or dark by the viewer's preference.
std::string drawWaveform(const WaveformPlot& plot, const Envelope& envelope);

/// A time as m:ss or h:mm:ss, with tenths on request.
std::string clockTime(double seconds, bool withTenths = false);

} // namespace example
