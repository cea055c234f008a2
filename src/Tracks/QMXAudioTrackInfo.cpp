// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioTrackInfo.h"

#include "Foundation/Archives/Number.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Format.h"

#include <type_traits>

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

namespace
{

template <class Integer> Integer bytesReversed(Integer value)
{
    using Bits = std::make_unsigned_t<Integer>;
    Bits rest = static_cast<Bits>(value);
    Bits reversed = 0;
    for (std::size_t i = 0; i < sizeof value; ++i, rest >>= 8)
        reversed = static_cast<Bits>(reversed << 8 | (rest & 0xff));
    return static_cast<Integer>(reversed);
}

// The archived numbers have their bytes in reverse order on every host; this is intended and part of the format.
std::shared_ptr<qmx::Number> archivedFrame(SInt64 frame)
{
    return qmx::Number::withUnsignedLongLong(static_cast<UInt64>(bytesReversed(frame)));
}

std::shared_ptr<qmx::Number> archivedCount(SInt32 count)
{
    return qmx::Number::withUnsignedInt(static_cast<UInt32>(bytesReversed(count)));
}

SInt64 frameFrom(const std::shared_ptr<qmx::Number>& number)
{
    return number ? bytesReversed(static_cast<SInt64>(number->unsignedLongLongValue())) : 0;
}

SInt32 countFrom(const std::shared_ptr<qmx::Number>& number)
{
    return number ? bytesReversed(static_cast<SInt32>(number->unsignedIntValue())) : 0;
}

bool boolFrom(const std::shared_ptr<qmx::Number>& number)
{
    return number && number->boolValue();
}

std::shared_ptr<qmx::Number> nextNumber(qmx::Decoder& decoder)
{
    return std::dynamic_pointer_cast<qmx::Number>(decoder.decodeObject());
}

} // namespace

std::shared_ptr<QMXAudioTrackInfo> QMXAudioTrackInfo::init()
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioTrackInfo>(),
                             [] { return std::make_shared<QMXAudioTrackInfo>(); });
}

std::shared_ptr<QMXAudioTrackInfo>
QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(std::optional<std::string> trackTitle,
                                                                   UInt64 trackBegin, UInt64 trackEnd, bool isActive)
{
    auto track = init();
    if (!track)
        return nullptr;
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

void QMXAudioTrackInfo::encodeWithCoder(qmx::Coder& coder) const
{
    coder.encodeString_forKey(mTrackId, QMXTrackId);
    coder.encodeString_forKey(mTrackTitle, QMXTrackTitle);
    coder.encodeString_forKey(mTrackArtistName, QMXTrackArtistName);
    coder.encodeString_forKey(mTrackComposerName, QMXTrackComposerName);
    coder.encodeString_forKey(mTrackYear, QMXTrackYear);
    coder.encodeObject_forKey(archivedFrame(mTrackBegin), QMXTrackBegin);
    coder.encodeObject_forKey(archivedFrame(mTrackEnd), QMXTrackEnd);
    coder.encodeObject_forKey(qmx::Number::withBool(mActive), QMXTrackIsActive);
    coder.encodeObject_forKey(qmx::Number::withBool(mCompilation), QMXCompilation);
    coder.encodeString_forKey(mAlbumTitle, QMXAlbumTitle);
    coder.encodeString_forKey(mAlbumArtistName, QMXAlbumArtistName);
    coder.encodeString_forKey(mAlbumYear, QMXAlbumYear);
    coder.encodeString_forKey(mGenre, QMXGenre);
    coder.encodeString_forKey(mGrouping, QMXGrouping);
    coder.encodeObject_forKey(mCoverArt ? mCoverArt : unreadCoverArt_, QMXCoverArt);
    coder.encodeString_forKey(mComments, QMXComments);
    coder.encodeString_forKey(mLyrics, QMXLyrics);
    coder.encodeObject_forKey(archivedCount(mTrackNumber), QMXTrackNumber);
    coder.encodeObject_forKey(archivedCount(mNumberOfTracks), QMXNumberOfTracks);
    coder.encodeObject_forKey(archivedCount(mAlbumNumber), QMXAlbumNumber);
    coder.encodeObject_forKey(archivedCount(mNumberOfAlbums), QMXNumberOfAlbums);
}

std::shared_ptr<QMXAudioTrackInfo> QMXAudioTrackInfo::initWithCoder(qmx::Decoder& decoder)
{
    auto track = std::make_shared<QMXAudioTrackInfo>();
    if (decoder.allowsKeyedCoding())
        track->decodeKeys(decoder);
    else
        track->decodeSequence(decoder);
    return track;
}

void QMXAudioTrackInfo::decodeKeys(qmx::Decoder& decoder)
{
    mTrackId = decoder.decodeStringForKey(QMXTrackId);
    mTrackTitle = decoder.decodeStringForKey(QMXTrackTitle);
    mTrackArtistName = decoder.decodeStringForKey(QMXTrackArtistName);
    mTrackComposerName = decoder.decodeStringForKey(QMXTrackComposerName);
    mTrackYear = decoder.decodeStringForKey(QMXTrackYear);
    mTrackBegin = frameFrom(decoder.decodeNumberForKey(QMXTrackBegin));
    mTrackEnd = frameFrom(decoder.decodeNumberForKey(QMXTrackEnd));
    mActive = boolFrom(decoder.decodeNumberForKey(QMXTrackIsActive));
    mCompilation = boolFrom(decoder.decodeNumberForKey(QMXCompilation));
    mAlbumTitle = decoder.decodeStringForKey(QMXAlbumTitle);
    mAlbumArtistName = decoder.decodeStringForKey(QMXAlbumArtistName);
    mAlbumYear = decoder.decodeStringForKey(QMXAlbumYear);
    mGenre = decoder.decodeStringForKey(QMXGenre);
    mGrouping = decoder.decodeStringForKey(QMXGrouping);
    mCoverArt = decoder.decodeImageForKey(QMXCoverArt);
    if (!mCoverArt)
        unreadCoverArt_ = decoder.decodeObjectForKey(QMXCoverArt);
    mComments = decoder.decodeStringForKey(QMXComments);
    mLyrics = decoder.decodeStringForKey(QMXLyrics);
    mTrackNumber = countFrom(decoder.decodeNumberForKey(QMXTrackNumber));
    mNumberOfTracks = countFrom(decoder.decodeNumberForKey(QMXNumberOfTracks));
    mAlbumNumber = countFrom(decoder.decodeNumberForKey(QMXAlbumNumber));
    mNumberOfAlbums = countFrom(decoder.decodeNumberForKey(QMXNumberOfAlbums));
}

void QMXAudioTrackInfo::decodeSequence(qmx::Decoder& decoder)
{
    if (const auto title = std::dynamic_pointer_cast<qmx::String>(decoder.decodeObject()))
        mTrackTitle = title->text();
    mTrackBegin = frameFrom(nextNumber(decoder));
    mTrackEnd = frameFrom(nextNumber(decoder));
    mActive = boolFrom(nextNumber(decoder));
}

std::vector<std::string> QMXAudioTrackInfo::archiveClassNames() const
{
    return {"QMXAudioTrackInfo", "NSObject"};
}

void QMXAudioTrackInfo::setCoverArt(std::shared_ptr<qmx::Image> coverArt)
{
    mCoverArt = std::move(coverArt);
    unreadCoverArt_ = nullptr;
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
