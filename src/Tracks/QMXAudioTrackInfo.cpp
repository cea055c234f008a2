// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackInfo.h"

#include "Foundation/Format.h"

constinit const std::string_view QMXTrackId = "QMXTrackId";
constinit const std::string_view QMXTrackTitle = "QMXTrackName";
constinit const std::string_view QMXTrackArtistName = "QMXTrackArtistName";
constinit const std::string_view QMXTrackComposerName = "QMXTrackComposerName";
constinit const std::string_view QMXTrackYear = "QMXTrackYear";
constinit const std::string_view QMXTrackBegin = "QMXTrackBegin";
constinit const std::string_view QMXTrackEnd = "QMXTrackEnd";
constinit const std::string_view QMXTrackIsActive = "QMXTrackIsActive";
constinit const std::string_view QMXCompilation = "QMXCompilation";
constinit const std::string_view QMXAlbumTitle = "QMXAlbumTitle";
constinit const std::string_view QMXAlbumArtistName = "QMXAlbumArtistName";
constinit const std::string_view QMXAlbumYear = "QMXAlbumYear";
constinit const std::string_view QMXGenre = "QMXGenre";
constinit const std::string_view QMXGrouping = "QMXGrouping";
constinit const std::string_view QMXCoverArt = "QMXCoverArt";
constinit const std::string_view QMXComments = "QMXComments";
constinit const std::string_view QMXLyrics = "QMXLyrics";
constinit const std::string_view QMXTrackNumber = "QMXTrackNumber";
constinit const std::string_view QMXNumberOfTracks = "QMXNumberOfTracks";
constinit const std::string_view QMXAlbumNumber = "QMXAlbumNumber";
constinit const std::string_view QMXNumberOfAlbums = "QMXNumberOfAlbums";

std::shared_ptr<QMXAudioTrackInfo> QMXAudioTrackInfo::init()
{
    return std::make_shared<QMXAudioTrackInfo>();
}

std::shared_ptr<QMXAudioTrackInfo>
QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(std::optional<std::string> trackTitle,
                                                                   UInt64 trackBegin, UInt64 trackEnd, bool isActive)
{
    auto track = init();
    track->mTrackTitle = std::move(trackTitle);
    track->mTrackBegin = static_cast<SInt64>(trackBegin);
    track->mTrackEnd = static_cast<SInt64>(trackEnd);
    track->mActive = isActive;
    return track;
}

std::shared_ptr<QMXAudioTrackInfo> QMXAudioTrackInfo::audioTrackInfoWithTrackTitle_trackBegin_trackEnd_isActive(
    std::optional<std::string> trackTitle, UInt64 trackBegin, UInt64 trackEnd, bool isActive)
{
    return initWithTrackTitle_trackBegin_trackEnd_isActive(std::move(trackTitle), trackBegin, trackEnd, isActive);
}

// Unsigned arithmetic: bounds from a damaged file may be anything.
SInt64 QMXAudioTrackInfo::duration() const
{
    return static_cast<SInt64>(static_cast<UInt64>(mTrackEnd) - static_cast<UInt64>(mTrackBegin));
}

void QMXAudioTrackInfo::setDuration(SInt64 duration)
{
    mTrackEnd = static_cast<SInt64>(static_cast<UInt64>(mTrackBegin) + static_cast<UInt64>(duration));
}

std::string QMXAudioTrackInfo::description() const
{
    return "QMXAudioTrackInfo [" + qmx::format("%@:", mTrackTitle) + qmx::format(" IN:%qu", mTrackBegin) +
           qmx::format(" OUT:%qu]", mTrackEnd);
}
