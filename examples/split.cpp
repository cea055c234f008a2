// SPDX-License-Identifier: MIT
// Divides a recording into tracks at its pauses: one line per track on standard output, a drawing where asked.
#include "support/CommandLine.h"
#include "support/Envelope.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/ProgressBar.h"
#include "support/Repair.h"
#include "support/TrackExport.h"
#include "support/TrackTexts.h"
#include "support/WaveformPlot.h"
#include "support/WholeFile.h"

#include <QMXCoreAudio/Tracks/QMXAudioTrackAutoDefiner.h>
#include <QMXCoreAudio/qmx.h>

#include <cstdio>
#include <filesystem>
#include <limits>

namespace
{

using example::CommandLine;
using example::Failure;
using example::valueOf;
using Tracks = std::vector<qmx::Track>;

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

A compressed FILE (m4a, FLAC, MP3, ...) is decoded while it is read; for the search by crossings into the folder
for temporary files (TMPDIR), as 16-bit samples, which go when the program ends. Its tracks are exported from FILE
itself, frame for frame: as WAVE files, or with --type converted.

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

qmx::TrackSearch searchFrom(const CommandLine& line)
{
    const bool hasSettings = line.has("--sensitivity") || line.has("--silence") || line.has("--level");
    const std::string name = line.text("--search").value_or(hasSettings ? "crossings" : "floor");
    if (name != "floor" && name != "crossings")
        throw Failure{"--search takes floor or crossings", 2};
    if (name == "floor" && hasSettings)
        throw Failure{"the search by floor takes no --sensitivity, --silence or --level", 2};
    if (name == "crossings" && line.has("--before"))
        throw Failure{"the search by crossings takes no --before", 2};
    return name == "floor" ? qmx::TrackSearch::noiseFloor : qmx::TrackSearch::crossings;
}

qmx::DivideOptions settingsFrom(const CommandLine& line)
{
    constexpr long most = std::numeric_limits<SInt16>::max();
    constexpr double longestSilence = most * 200;
    qmx::DivideOptions settings{.search = searchFrom(line)};
    const auto whole = [&](const std::string& option, long least, int standard) {
        return static_cast<int>(line.wholeNumber(option, least, most).value_or(standard));
    };
    settings.sensitivity = whole("--sensitivity", 0, settings.sensitivity);
    settings.lengthOfSilence = static_cast<float>(line.number("--silence", 0, longestSilence).value_or(1400));
    settings.secondsBeforeNextTrack = line.number("--before", 0, longestSilence).value_or(-1);
    settings.level = whole("--level", -most - 1, settings.level);
    settings.numberOfTracks = whole("--tracks", 1, 0);
    return settings;
}

/// Titles, artist, album and cover that the command line gives to tracks.
struct Edit {
    explicit Edit(const CommandLine& line)
        : titles(example::titlesFrom(line.texts("--title"))), artist(line.text("--artist")),
          album(line.text("--album")), cover(line.has("--cover") ? example::readCover(*line.text("--cover")) : nullptr)
    {
    }

    bool isAsked() const { return !titles.empty() || artist || album || cover; }
    void apply(Tracks& tracks) const
    {
        for (const auto& [number, title] : titles) {
            if (number > tracks.size())
                throw Failure{"there is no track " + std::to_string(number) + ", only " +
                              std::to_string(tracks.size())};
            tracks[number - 1].title = title;
        }
        for (qmx::Track& track : tracks) {
            if (!track.record)
                track.record = QMXAudioTrackInfo::init();
            if (artist) {
                track.record->setTrackArtistName(artist);
                track.record->setAlbumArtistName(artist);
            }
            if (album)
                track.record->setAlbumTitle(album);
            if (cover)
                track.record->setCoverArt(cover);
        }
    }

    std::map<std::size_t, std::string> titles; ///< by track, from 1
    std::optional<std::string> artist, album;
    std::shared_ptr<qmx::Image> cover;
};

/// A failure to read or store tracks, with the option that helps.
[[noreturn]] void failWithHint(const qmx::Error& error)
{
    const bool isUnreadable = error.status() == kAudioFileInvalidChunkError;
    const bool isCut = error.status() == kAudioFileInvalidFileError;
    throw Failure{error.text() + (isUnreadable ? " (--force stores others all the same)"
                                  : isCut      ? " (--repair mends that)"
                                               : "")};
}

/// The tracks that the file keeps; a Failure if there are none.
qmx::StoredTracks keptTracks(const std::string& path)
{
    auto kept = qmx::readTracks(path);
    if (!kept)
        failWithHint(kept.error());
    if (!*kept)
        throw Failure{path + ": keeps no tracks (--store puts some there)"};
    return **std::move(kept);
}

/// The file to store in: the recording, or the copy that is asked for, which is made.
std::string storePath(const CommandLine& line, const std::string& path)
{
    const auto copy = line.text("--output");
    std::error_code error;
    if (copy && !std::filesystem::copy_file(path, *copy, error))
        throw Failure{"cannot copy to " + *copy + ": " + error.message()};
    return copy.value_or(path);
}

void store(const CommandLine& line, const std::string& path, const Tracks& tracks)
{
    if (const auto stored = qmx::storeTracks(path, tracks, {.replaceUnreadable = line.has("--force")}); !stored)
        failWithHint(stored.error());
    example::printAll(example::trackLines(tracks));
    std::fprintf(stderr, "Stored %zu %s in %s\n", tracks.size(), tracks.size() == 1 ? "track" : "tracks", path.c_str());
}

/// A division with the drawing of what it read.
class Division
{
public:
    Division(const std::string& path, qmx::DivideOptions options, const std::string& plotPath)
        : reader_(valueOf(qmx::FrameReader::open(path))), options_(std::move(options)), path_(path),
          plotPath_(plotPath),
          envelope_(static_cast<UInt64>(reader_.length()), reader_.channels(), example::waveformColumns)
    {
        if (reader_.length() == 0)
            throw Failure{path + ": holds no audio"};
    }

    Tracks run()
    {
        options_.progress = [this](float done) { return show("dividing", static_cast<double>(done)); };
        if (!plotPath_.empty())
            options_.samples = [this](std::span<const float> samples, UInt32) { envelope_.add(samples); };
        Tracks tracks = valueOf(qmx::divide(path_, options_));
        for (std::size_t i = 0; i < tracks.size(); ++i)
            tracks[i].title = "Untitled Track " + std::to_string(2 * i);
        if (!plotPath_.empty())
            draw(tracks);
        bar_.wipe();
        return tracks;
    }

private:
    bool show(const char* label, double done)
    {
        bar_.show(label, done);
        return !example::isInterrupted();
    }
    /// The search by crossings passes no samples on.
    void measure()
    {
        double done = 0;
        for (const std::span<const float> block : reader_) {
            envelope_.add(block);
            done += static_cast<double>(block.size()) / reader_.channels();
            if (!show("drawing", done / static_cast<double>(reader_.length())))
                example::endIfInterrupted();
        }
        if (reader_.error())
            example::fail(*reader_.error());
    }
    void draw(const Tracks& tracks)
    {
        const bool isByFloor = options_.search == qmx::TrackSearch::noiseFloor;
        if (!isByFloor)
            measure();
        example::WaveformPlot plot;
        plot.title = std::filesystem::path(path_).filename();
        plot.sampleRate = reader_.sampleRate();
        plot.frames = static_cast<UInt64>(reader_.length());
        plot.subtitle = example::clockTime(static_cast<double>(plot.frames) / plot.sampleRate) + " \u00b7 " +
                        std::to_string(tracks.size()) + (tracks.size() == 1 ? " track" : " tracks") + " \u00b7 " +
                        reader_.format().text();
        for (const qmx::Track& track : tracks)
            plot.tracks.push_back({static_cast<UInt64>(track.first), static_cast<UInt64>(track.end)});
        if (isByFloor)
            plot.pauses = QMXAudioTrackAutoDefiner::lastPauses();
        example::writeWholeFile(plotPath_, drawWaveform(plot, envelope_));
    }

    qmx::FrameReader reader_;
    qmx::DivideOptions options_;
    std::string path_, plotPath_;
    example::Envelope envelope_;
    example::ProgressBar bar_;
};

const std::vector<std::string> options{"--search", "--before", "--sensitivity", "--silence", "--level",
                                       "--tracks", "--plot",   "--title",       "--artist",  "--album",
                                       "--cover",  "--output", "--export",      "--type"};
const std::vector<std::string> flags{"--store", "--list", "--history", "--repair", "--force"};

void checkJobs(const CommandLine& line, const Edit& edit)
{
    const bool isStoring = line.has("--store"), isEditing = edit.isAsked(), isRepairing = line.has("--repair");
    const int jobs =
        int{isStoring || isEditing} + int{line.has("--list")} + int{line.has("--history")} + int{isRepairing};
    if (jobs > 1)
        throw Failure{"--list, --history, --repair and storing do not go together", 2};
    if (line.has("--export") && (isEditing || line.has("--history") || isRepairing) && !isStoring)
        throw Failure{"--export goes with dividing or with --list", 2};
    if (line.has("--output") && !isStoring && !isEditing && !isRepairing)
        throw Failure{"--output needs --store or --repair", 2};
    if (line.plainArguments().size() != 1)
        throw Failure{line.plainArguments().empty() ? "which file? (--help tells more)" : "one file at a time, please",
                      2};
}

/// Divides the recording, and prints or stores the tracks.
Tracks divide(const CommandLine& line, const std::string& path, const Edit& edit)
{
    const std::string plotPath = line.text("--plot").value_or("");
    std::error_code error;
    if (!plotPath.empty() && std::filesystem::equivalent(path, plotPath, error))
        throw Failure{"--plot would replace the recording " + path};
    if (const auto cost = line.has("--store") ? qmx::storeCost(path, {}, {.replaceUnreadable = line.has("--force")})
                                              : qmx::StoreCost();
        !cost)
        failWithHint(cost.error());
    example::catchInterrupts(nullptr);
    Tracks tracks = Division(path, settingsFrom(line), plotPath).run();
    if (line.has("--store")) {
        edit.apply(tracks);
        store(line, storePath(line, path), tracks);
    } else {
        example::printAll(example::trackLines(tracks));
    }
    return tracks;
}

int split(int argumentCount, char** arguments)
{
    const CommandLine line(argumentCount, arguments, options, flags);
    if (line.asksForHelp()) {
        example::printAll(help);
        return 0;
    }
    const example::TrackExport exporting(line);
    const Edit edit(line);
    checkJobs(line, edit);
    const std::string path = line.plainArguments()[0];
    Tracks tracks;
    if (line.has("--repair")) {
        const std::string repaired = storePath(line, path);
        example::printAll(repaired + ": " + example::repairRecording(repaired) + "\n");
    } else if (line.has("--history")) {
        example::printAll(example::historyLines(*keptTracks(path).record));
    } else if (line.has("--list")) {
        tracks = keptTracks(path).tracks;
        example::printAll(example::trackLines(tracks));
    } else if (edit.isAsked() && !line.has("--store")) {
        tracks = keptTracks(path).tracks;
        if (tracks.empty())
            throw Failure{path + ": keeps no tracks (--store puts some there)"};
        edit.apply(tracks);
        store(line, storePath(line, path), tracks);
    } else {
        tracks = divide(line, path, edit);
    }
    exporting.write(path, tracks);
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    return example::runProgram("split", split, argumentCount, arguments);
}
