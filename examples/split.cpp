// SPDX-License-Identifier: MIT
// Divides a recording into tracks at its pauses: one line per track on standard output, a drawing where asked.
#include "support/CommandLine.h"
#include "support/DecodedCopy.h"
#include "support/Envelope.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"
#include "support/Recording.h"
#include "support/StoreJob.h"
#include "support/TrackExport.h"
#include "support/WaveformPlot.h"
#include "support/WholeFile.h"

#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Tracks/QMXAudioTrackAutoDefiner.h>

#include <filesystem>
#include <limits>
#include <optional>

namespace
{

using example::CommandLine;
using example::Failure;

constexpr const char* help =
    R"(usage: split [--search floor|crossings] [--tracks N] [--before S] [--plot FILE.svg]
             [--sensitivity N] [--silence MS] [--level N]
             [--store [--title N=TEXT]... [--artist TEXT] [--album TEXT] [--cover IMAGE]]
             [--export DIR [--type CODE]] FILE
       split --list [--export DIR [--type CODE]] | --history | --repair | --title N=TEXT ... FILE

Divides the recording FILE into tracks and prints one line for each: first frame, frame
past the last, and title, with tabs between them.

  --search WAY      floor: where all of the sound sinks to the noise floor, which needs no settings (default);
                    crossings: where the samples seldom cross a level, as the next three options say
  --tracks N        make N tracks, or as many as there are pauses for
  --before S        by floor: start tracks S seconds before their first sound, not in the middle of the pause
                    before it, and never before that middle
  --plot FILE.svg   draw the waveform with the tracks, and what the search by floor saw
  --export DIR      write each track into a file of its own, named by its number and title, byte for byte
                    in the type and format of FILE; with --list, the tracks that are kept
  --type CODE       convert them to another type: AIFF, AIFC, WAVE, caff, m4af, flac, ... (see convert)

The search by crossings, which each of these options asks for:

  --sensitivity N   crossings of the level that a fifth of a second must have to be loud (71)
  --silence MS      milliseconds that a silence must last to divide tracks, in steps of 200 (1400)
  --level N         sample value whose crossings are counted, on the scale of 16 bits (500)

A compressed FILE (m4a, FLAC, MP3, ...) is decoded into the folder for temporary files (TMPDIR) first, as
16-bit samples, which go when the program ends. Its tracks are exported from FILE itself, frame for frame:
as WAVE files, or with --type converted.

The tracks can be kept in the file itself (AIFF and AIFF-C), which leaves the audio as it is:

  --store           keep the tracks in FILE, in place of those that are there
  --title N=TEXT    title of track N, counted from 1; for tracks stored before if --store is not given
  --artist TEXT     artist of all tracks and of the album
  --album TEXT      title of the album
  --cover IMAGE     picture of all tracks
  --output COPY     work on COPY, which is made anew from FILE
  --force           store even where the file holds tracks that cannot be read
  --list            print the tracks that are kept in FILE
  --history         print what was done to FILE: first frame, frame past the last, process, settings
  --repair          set the sizes in FILE right, after its writer was killed
)";

enum class Search { floor, crossings };

struct Settings {
    std::string path;
    Search search = Search::floor;
    SInt16 sensitivity = 71;
    float silence = 1400;
    SInt16 level = 500;
    SInt16 tracks = 0;
    double before = -1; ///< seconds; negative for the middle of pauses
    std::string plotPath;
};

Search searchFrom(const CommandLine& line)
{
    const bool hasSettings = line.has("--sensitivity") || line.has("--silence") || line.has("--level");
    const std::string name = line.text("--search").value_or(hasSettings ? "crossings" : "floor");
    if (name != "floor" && name != "crossings")
        throw Failure{"--search takes floor or crossings", 2};
    if (name == "floor" && hasSettings)
        throw Failure{"the search by floor takes no --sensitivity, --silence or --level", 2};
    if (name == "crossings" && line.has("--before"))
        throw Failure{"the search by crossings takes no --before", 2};
    return name == "floor" ? Search::floor : Search::crossings;
}

Settings settingsFrom(const CommandLine& line)
{
    if (line.plainArguments().size() != 1)
        throw Failure{line.plainArguments().empty() ? "which file? (--help tells more)" : "one file at a time, please",
                      2};
    constexpr long most = std::numeric_limits<SInt16>::max();
    constexpr double longestSilence = most * 200;
    Settings settings;
    settings.path = line.plainArguments()[0];
    settings.search = searchFrom(line);
    settings.sensitivity =
        static_cast<SInt16>(line.wholeNumber("--sensitivity", 0, most).value_or(settings.sensitivity));
    settings.silence = static_cast<float>(line.number("--silence", 0, longestSilence).value_or(settings.silence));
    settings.before = line.number("--before", 0, longestSilence).value_or(settings.before);
    settings.level = static_cast<SInt16>(line.wholeNumber("--level", -most - 1, most).value_or(settings.level));
    settings.tracks = static_cast<SInt16>(line.wholeNumber("--tracks", 1, most).value_or(settings.tracks));
    settings.plotPath = line.text("--plot").value_or("");
    return settings;
}

/// Refuses, before anything is read or decoded, what holds nothing, and what the 32-bit and 16-bit counts of the search
/// by crossings cannot hold.
void checkLength(const Settings& settings, SInt64 frames, Float64 sampleRate)
{
    constexpr SInt64 longest = std::numeric_limits<UInt32>::max() / 5;
    if (frames <= 0)
        throw Failure{settings.path + ": holds no audio"};
    if (settings.search == Search::floor)
        return;
    if (frames > longest)
        throw Failure{settings.path + ": longer than " + std::to_string(longest) + " frames, too long to be divided"};
    if (settings.tracks == 0)
        return;
    const double blocks = static_cast<double>(frames) * 5 / sampleRate;
    constexpr double mostBlocks = std::numeric_limits<SInt16>::max() - 1;
    if (blocks > mostBlocks)
        throw Failure{settings.path + ": longer than 1 h 49 min, too long for --tracks"};
    if (settings.tracks > blocks)
        throw Failure{settings.path + ": too short for " + std::to_string(settings.tracks) + " tracks"};
}

void checkPlotPath(const Settings& settings)
{
    std::error_code error;
    if (!settings.plotPath.empty() && std::filesystem::equivalent(settings.path, settings.plotPath, error))
        throw Failure{"--plot would replace the recording " + settings.path};
}

/// Shows the definer's progress, and passes a Ctrl-C on to it that came before its run started.
class Progress : public QMXAudioTrackAutoDefinerDelegate
{
public:
    void autoDefineProgress(float progress) override
    {
        if (example::isInterrupted())
            QMXAudioTrackAutoDefiner::cancel();
        constexpr double shareOfReading = 0.5;
        bar_.show("dividing", static_cast<double>(progress) / shareOfReading);
    }

private:
    example::ProgressBar bar_;
};

QMXAudioTrackAutoDefiner::Tracks define(const Settings& settings, QMXAudioFile& file)
{
    using Definer = QMXAudioTrackAutoDefiner;
    Definer::setConvertsFilesOfOtherChannelCounts(true);
    Definer::setSecondsBeforeNextTrack(settings.before);
    Definer::setDelegate(std::make_shared<Progress>());
    auto tracks = settings.search == Search::floor
                      ? Definer::autoDefineTracksByNoiseFloorInAudioFile_numberOfTracks(file, settings.tracks)
                      : Definer::autoDefineTracksInAudioFile_sensitivity_lengthOfSilence_zeroOffset_numberOfTracks(
                            file, settings.sensitivity, settings.silence, settings.level, settings.tracks);
    Definer::setDelegate(nullptr);
    example::endIfInterrupted();
    if (Definer::lastStatus() != noErr)
        throw Failure{Definer::lastError()};
    return tracks;
}

example::Envelope measure(QMXAudioFile& file)
{
    const UInt64 frames = example::frameCount(file);
    example::ProgressBar bar;
    example::Envelope envelope(frames, file.channelsPerFrame(), example::waveformColumns);
    const double samples = static_cast<double>(frames) * file.channelsPerFrame();
    double done = 0;
    example::readSamples(file, [&](std::span<const float> piece) {
        envelope.add(piece);
        done += static_cast<double>(piece.size());
        bar.show("drawing", done / samples);
        return !example::isInterrupted();
    });
    example::endIfInterrupted();
    return envelope;
}

std::string plotOf(QMXAudioFile& file, const std::string& recording, const QMXAudioStreamBasicDescription& format,
                   const QMXAudioTrackAutoDefiner::Tracks::element_type& tracks)
{
    example::WaveformPlot plot;
    plot.title = std::filesystem::path(recording).filename();
    plot.sampleRate = file.sampleRate();
    plot.frames = example::frameCount(file);
    plot.subtitle = example::clockTime(static_cast<double>(plot.frames) / plot.sampleRate) + " \u00b7 " +
                    std::to_string(tracks.size()) + (tracks.size() == 1 ? " track" : " tracks") + " \u00b7 " +
                    format.description();
    for (const auto& track : tracks)
        plot.tracks.push_back({static_cast<UInt64>(track->trackBegin()), static_cast<UInt64>(track->trackEnd())});
    plot.pauses = QMXAudioTrackAutoDefiner::lastPauses();
    return drawWaveform(plot, measure(file));
}

const std::vector<std::string> options{"--search", "--before", "--sensitivity", "--silence", "--level",
                                       "--tracks", "--plot",   "--title",       "--artist",  "--album",
                                       "--cover",  "--output", "--export",      "--type"};
const std::vector<std::string> flags{"--store", "--list", "--history", "--repair", "--force"};

int split(int argumentCount, char** arguments)
{
    const CommandLine line(argumentCount, arguments, options, flags);
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    const Settings settings = settingsFrom(line);
    const example::TrackExport exporting(line);
    example::StoreJob job(line, settings.path);
    if (!job.divides()) {
        const auto listed = job.run();
        if (exporting.isAsked())
            exporting.write(*example::openAudioFile(settings.path), listed);
        return 0;
    }
    example::catchInterrupts(&QMXAudioTrackAutoDefiner::cancel);
    checkPlotPath(settings);
    const auto recording = example::openAudioFile(settings.path);
    const auto& format = *recording->fileStreamFormat();
    const auto check = [&](SInt64 frames) { checkLength(settings, frames, format.sampleRate()); };
    // the definer reads samples by bytes
    const bool isCompressed = format.bytesPerFrame() == 0;
    if (!isCompressed)
        check(static_cast<SInt64>(example::frameCount(*recording)));
    job.prepare(*recording);
    std::optional<example::DecodedCopy> decoded;
    if (isCompressed)
        decoded.emplace(settings.path, check);
    const auto samples = decoded ? example::openAudioFile(decoded->path()) : recording;
    example::checkSamples(*samples);

    const auto tracks = define(settings, *samples);
    if (!settings.plotPath.empty())
        example::writeWholeFile(settings.plotPath, plotOf(*samples, settings.path, format, *tracks));
    const auto found = job.finish(*tracks);
    if (exporting.isAsked())
        exporting.write(*recording, found);
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("split", split, argumentCount, arguments);
}
