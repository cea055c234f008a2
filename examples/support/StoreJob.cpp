// SPDX-License-Identifier: MIT
#include "support/StoreJob.h"

#include "support/Failure.h"
#include "support/Recording.h"

#include <charconv>
#include <cstdio>

namespace example
{
namespace
{

constexpr int usageError = 2;

std::map<std::size_t, std::string> titlesFrom(const std::vector<std::string>& texts)
{
    std::map<std::size_t, std::string> titles;
    for (const std::string& text : texts) {
        std::size_t number = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error != std::errc{} || number == 0 || stop == end || *stop != '=')
            throw Failure{"--title takes a track's number, = and its title, not '" + text + "'", usageError};
        titles[number] = std::string(stop + 1, end);
    }
    return titles;
}

} // namespace

StoreJob::StoreJob(const CommandLine& line, const std::string& path)
    : path_(path), stores_(line.has("--store")), lists_(line.has("--list")), history_(line.has("--history")),
      repairs_(line.has("--repair")), force_(line.has("--force")), titles_(titlesFrom(line.texts("--title"))),
      output_(line.text("--output")), artist_(line.text("--artist")), album_(line.text("--album")),
      coverPath_(line.text("--cover").value_or(""))
{
    const int jobs = int{stores_ || edits()} + int{lists_} + int{history_} + int{repairs_};
    if (jobs > 1)
        throw Failure{"--list, --history, --repair and storing do not go together", usageError};
    if (line.has("--export") && (edits() || history_ || repairs_) && !stores_)
        throw Failure{"--export goes with dividing or with --list", usageError};
    if (output_ && !stores_ && !edits() && !repairs_)
        throw Failure{"--output needs --store or --repair", usageError};
    if (!coverPath_.empty())
        cover_ = readCover(coverPath_);
}

void StoreJob::prepare(const QMXAudioFile& recording)
{
    if (!stores_)
        return;
    checkCanStore(output_.value_or(path_), recording.fileType());
    record_ = readRecord(path_, force_);
    copyToOutput();
}

void StoreJob::copyToOutput()
{
    if (!output_)
        return;
    copyRecording(path_, *output_);
    path_ = *output_;
}

Record StoreJob::kept() const
{
    Record record = readRecord(path_, force_);
    if (!record)
        openAudioFile(path_); // fails with the reason if it cannot be read
    if (!record)
        throw Failure{path_ + ": keeps no tracks (--store puts some there)"};
    return record;
}

QMXTrackAndProcessingInfo::TrackList StoreJob::run()
{
    if (edits() || repairs_)
        copyToOutput();
    if (repairs_) {
        printAll(path_ + ": " + repairRecording(path_) + "\n");
    } else if (lists_) {
        const Record record = kept();
        printAll(trackLines(*record));
        if (record->trackInfos())
            return *record->trackInfos();
    } else if (history_) {
        printAll(historyLines(*kept()));
    } else {
        const Record record = kept();
        if (!record->trackInfos())
            throw Failure{path_ + ": keeps no tracks (--store puts some there)"};
        edit(*record->trackInfos());
        store(record);
    }
    return {};
}

QMXTrackAndProcessingInfo::TrackList StoreJob::finish(const QMXTrackAndProcessingInfo::TrackList& tracks) const
{
    const Record found = QMXTrackAndProcessingInfo::init();
    found->addTrackInfoForAllTracks(tracks);
    if (!stores_) {
        printAll(trackLines(*found));
        return tracks;
    }
    edit(*found->trackInfos());
    const Record record = record_ ? record_ : QMXTrackAndProcessingInfo::init();
    record->clearTrackInfos();
    record->addTrackInfoForAllTracks(*found->trackInfos());
    store(record);
    return *found->trackInfos();
}

void StoreJob::edit(QMXTrackAndProcessingInfo::TrackList& tracks) const
{
    for (const auto& [number, title] : titles_) {
        if (number > tracks.size())
            throw Failure{"there is no track " + std::to_string(number) + ", only " + std::to_string(tracks.size())};
        tracks[number - 1]->setTrackTitle(title);
    }
    for (const auto& track : tracks) {
        if (artist_) {
            track->setTrackArtistName(artist_);
            track->setAlbumArtistName(artist_);
        }
        if (album_)
            track->setAlbumTitle(album_);
        if (cover_)
            track->setCoverArt(cover_);
    }
}

void StoreJob::store(const Record& record) const
{
    storeRecord(path_, record);
    const std::size_t count = record->trackInfos()->size();
    printAll(trackLines(*record));
    std::fprintf(stderr, "Stored %zu %s in %s\n", count, count == 1 ? "track" : "tracks", path_.c_str());
}

} // namespace example
