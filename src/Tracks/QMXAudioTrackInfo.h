// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Archives/Coder.h>
#include <QMXCoreAudio/Foundation/Archives/Image.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Keys under which the fields are archived. The track title's key reads "QMXTrackName".
QMX_EXPORT extern const std::string_view QMXTrackId;
QMX_EXPORT extern const std::string_view QMXTrackTitle;
QMX_EXPORT extern const std::string_view QMXTrackArtistName;
QMX_EXPORT extern const std::string_view QMXTrackComposerName;
QMX_EXPORT extern const std::string_view QMXTrackYear;
QMX_EXPORT extern const std::string_view QMXTrackBegin;
QMX_EXPORT extern const std::string_view QMXTrackEnd;
QMX_EXPORT extern const std::string_view QMXTrackIsActive;
QMX_EXPORT extern const std::string_view QMXCompilation;
QMX_EXPORT extern const std::string_view QMXAlbumTitle;
QMX_EXPORT extern const std::string_view QMXAlbumArtistName;
QMX_EXPORT extern const std::string_view QMXAlbumYear;
QMX_EXPORT extern const std::string_view QMXGenre;
QMX_EXPORT extern const std::string_view QMXGrouping;
QMX_EXPORT extern const std::string_view QMXCoverArt;
QMX_EXPORT extern const std::string_view QMXComments;
QMX_EXPORT extern const std::string_view QMXLyrics;
QMX_EXPORT extern const std::string_view QMXTrackNumber;
QMX_EXPORT extern const std::string_view QMXNumberOfTracks;
QMX_EXPORT extern const std::string_view QMXAlbumNumber;
QMX_EXPORT extern const std::string_view QMXNumberOfAlbums;

/// One track of an audio file: its bounds in frames and its catalogue data. Absent texts mean not known. Records are
/// compared by identity. One thread at a time per object.
///
/// In archives the bounds and the four counts are stored with their bytes reversed; the version is not stored.
class QMX_EXPORT QMXAudioTrackInfo : public qmx::Object, public qmx::Coding
{
public:
    /// The version that every record carries.
    static constexpr UInt32 kVersion = 3;

    /// An inactive, empty record without texts and numbers.
    static std::shared_ptr<QMXAudioTrackInfo> init();
    /// A record of the frames from `trackBegin` up to `trackEnd`, the latter not included.
    static std::shared_ptr<QMXAudioTrackInfo>
    initWithTrackTitle_trackBegin_trackEnd_isActive(std::optional<std::string> trackTitle, UInt64 trackBegin,
                                                    UInt64 trackEnd, bool isActive);
    /// The same.
    static std::shared_ptr<QMXAudioTrackInfo>
    audioTrackInfoWithTrackTitle_trackBegin_trackEnd_isActive(std::optional<std::string> trackTitle, UInt64 trackBegin,
                                                              UInt64 trackEnd, bool isActive);
    /// A record from an archive. What is missing there is absent, 0 or false: a missing count is 0, not -1.
    static std::shared_ptr<QMXAudioTrackInfo> initWithCoder(qmx::Decoder& decoder);
    /// Needs a coder with keys.
    void encodeWithCoder(qmx::Coder& coder) const override;
    std::vector<std::string> archiveClassNames() const override;

    /// The first frame of the track.
    SInt64 trackBegin() const { return mTrackBegin; }
    void setTrackBegin(SInt64 trackBegin) { mTrackBegin = trackBegin; }
    /// The frame after the last one of the track.
    SInt64 trackEnd() const { return mTrackEnd; }
    void setTrackEnd(SInt64 trackEnd) { mTrackEnd = trackEnd; }
    /// Frames from start to end; negative when the end lies before the start.
    SInt64 duration() const;
    /// Sets the end `duration` frames after the start.
    void setDuration(SInt64 duration);
    /// The record's version.
    UInt32 audioTrackInfoVersion() const { return mAudioTrackInfoVersion; }

    bool isActive() const { return mActive; }
    void setActive(bool active) { mActive = active; }
    /// Whether the track is part of a compilation.
    bool isCompilation() const { return mCompilation; }
    void setCompilation(bool compilation) { mCompilation = compilation; }

    const std::optional<std::string>& trackId() const { return mTrackId; }
    void setTrackId(std::optional<std::string> trackId) { mTrackId = std::move(trackId); }
    const std::optional<std::string>& albumTitle() const { return mAlbumTitle; }
    void setAlbumTitle(std::optional<std::string> albumTitle) { mAlbumTitle = std::move(albumTitle); }
    const std::optional<std::string>& albumArtistName() const { return mAlbumArtistName; }
    void setAlbumArtistName(std::optional<std::string> albumArtistName)
    {
        mAlbumArtistName = std::move(albumArtistName);
    }
    const std::optional<std::string>& albumYear() const { return mAlbumYear; }
    void setAlbumYear(std::optional<std::string> albumYear) { mAlbumYear = std::move(albumYear); }
    const std::optional<std::string>& trackTitle() const { return mTrackTitle; }
    void setTrackTitle(std::optional<std::string> trackTitle) { mTrackTitle = std::move(trackTitle); }
    const std::optional<std::string>& trackArtistName() const { return mTrackArtistName; }
    void setTrackArtistName(std::optional<std::string> trackArtistName)
    {
        mTrackArtistName = std::move(trackArtistName);
    }
    const std::optional<std::string>& trackComposerName() const { return mTrackComposerName; }
    void setTrackComposerName(std::optional<std::string> trackComposerName)
    {
        mTrackComposerName = std::move(trackComposerName);
    }
    const std::optional<std::string>& trackYear() const { return mTrackYear; }
    void setTrackYear(std::optional<std::string> trackYear) { mTrackYear = std::move(trackYear); }
    const std::optional<std::string>& genre() const { return mGenre; }
    void setGenre(std::optional<std::string> genre) { mGenre = std::move(genre); }
    const std::optional<std::string>& grouping() const { return mGrouping; }
    void setGrouping(std::optional<std::string> grouping) { mGrouping = std::move(grouping); }
    const std::optional<std::string>& comments() const { return mComments; }
    void setComments(std::optional<std::string> comments) { mComments = std::move(comments); }
    const std::optional<std::string>& lyrics() const { return mLyrics; }
    void setLyrics(std::optional<std::string> lyrics) { mLyrics = std::move(lyrics); }
    /// The cover picture, shared; null when there is none.
    const std::shared_ptr<qmx::Image>& coverArt() const { return mCoverArt; }
    void setCoverArt(std::shared_ptr<qmx::Image> coverArt);

    // -1 in the numbers means not set.
    SInt32 trackNumber() const { return mTrackNumber; }
    void setTrackNumber(SInt32 trackNumber) { mTrackNumber = trackNumber; }
    SInt32 numberOfTracks() const { return mNumberOfTracks; }
    void setNumberOfTracks(SInt32 numberOfTracks) { mNumberOfTracks = numberOfTracks; }
    SInt32 albumNumber() const { return mAlbumNumber; }
    void setAlbumNumber(SInt32 albumNumber) { mAlbumNumber = albumNumber; }
    SInt32 numberOfAlbums() const { return mNumberOfAlbums; }
    void setNumberOfAlbums(SInt32 numberOfAlbums) { mNumberOfAlbums = numberOfAlbums; }

    /// Title and bounds in one line.
    std::string description() const override;

private:
    void decodeKeys(qmx::Decoder& decoder);
    void decodeSequence(qmx::Decoder& decoder);

    SInt64 mTrackBegin = 0;
    SInt64 mTrackEnd = 0;
    UInt32 mAudioTrackInfoVersion = kVersion;
    bool mActive = false;
    std::optional<std::string> mTrackId;
    std::optional<std::string> mAlbumTitle;
    std::optional<std::string> mAlbumArtistName;
    std::optional<std::string> mAlbumYear;
    std::optional<std::string> mTrackTitle;
    std::optional<std::string> mTrackArtistName;
    std::optional<std::string> mTrackComposerName;
    std::optional<std::string> mTrackYear;
    std::optional<std::string> mGenre;
    std::optional<std::string> mGrouping;
    std::shared_ptr<qmx::Image> mCoverArt;
    std::optional<std::string> mComments;
    std::optional<std::string> mLyrics;
    SInt32 mTrackNumber = -1;
    SInt32 mNumberOfTracks = -1;
    SInt32 mAlbumNumber = -1;
    SInt32 mNumberOfAlbums = -1;
    bool mCompilation = false;

    std::shared_ptr<const qmx::Object> unreadCoverArt_; // archived by another program in an unknown form; kept as it is
};
