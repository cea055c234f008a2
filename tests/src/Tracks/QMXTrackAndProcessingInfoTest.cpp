// SPDX-License-Identifier: MIT
// What of a record stands in its archive, and how records are read from archives without all keys or without any.
#include "Tracks/QMXTrackAndProcessingInfo.h"
#include "Foundation/Archives/KeyedArchiver.h"
#include "Foundation/Archives/KeyedUnarchiver.h"
#include "Foundation/Archives/PropertyList.h"
#include "Foundation/Archives/Unarchiver.h"
#include "support/Archives.h"
#include "support/ShortMemory.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

using qmx::PropertyListArray;
using qmx::PropertyListDictionary;
using qmx::PropertyListUID;
using qmx::PropertyListValue;
using Track = QMXAudioTrackInfo;

class RecordArchive : public testing::Test
{
protected:
    void SetUp() override { QMXTrackAndProcessingInfo::registerArchiveClasses(); }
};

std::shared_ptr<Track> numberedTrack()
{
    auto track = Track::initWithTrackTitle_trackBegin_trackEnd_isActive("Intro", 1, 0x0102, true);
    track->setNumberOfTracks(3);
    return track;
}

PropertyListValue archiveOf(const std::shared_ptr<qmx::Object>& object)
{
    return qmx::parseBinaryPropertyList(qmx::KeyedArchiver::archivedDataWithRootObject(object)).value_or(false);
}

const PropertyListArray& objectsOf(const PropertyListValue& archive)
{
    return *archive.as<PropertyListDictionary>()->find("$objects")->as<PropertyListArray>();
}

/// The number that the track in the archive (its root) has under `key`.
std::uint64_t archivedNumber(const PropertyListValue& archive, const std::string& key)
{
    const auto& objects = objectsOf(archive);
    const auto* place = objects.at(1)->as<PropertyListDictionary>()->find(key)->as<PropertyListUID>();
    return objects.at(place->index)->as<qmx::PropertyListInteger>()->bits;
}

/// An object of class `name` in a sequential archive; "@" is string 92, NSObject string 94.
std::string sequential(const std::string& name, const std::string& contents)
{
    const std::vector<std::uint8_t> text(name.begin(), name.end());
    const std::vector<std::uint8_t> length{static_cast<std::uint8_t>(name.size())};
    return "04 0b 73747265616d7479706564 81e803 84 01 40 84 84 84" + qmx::test::toHex(length) + qmx::test::toHex(text) +
           "00 84 84 08 4e534f626a656374 00 85" + contents + "86";
}

template <class T> std::shared_ptr<T> readSequential(const std::string& name, const std::string& contents)
{
    const auto bytes = qmx::test::fromHex(sequential(name, contents));
    return std::dynamic_pointer_cast<T>(qmx::Unarchiver::unarchiveObjectWithData(bytes));
}

// The text "Ab", then numbers: 8 bytes in little-endian order, again, and a flag. A nil object is 92 85.
const std::string text = "92 84 84 84 08 4e53537472696e67 01 94 84 01 2b 02 4162 86";
const std::string first = "92 84 84 84 08 4e534e756d626572 00 84 84 07 4e5356616c7565 00 94 84 01 2a 84 84 01 71 9a";
const std::string next = "86 92 84 98 99 9a 9a";
const std::string flag = "86 92 84 98 99 84 84 01 63 9b 01 86";

/// Archived as an object of the class `name` with one key.
struct Foreign : qmx::Object, qmx::Coding {
    Foreign(std::string className, std::string_view keyOfObject, std::shared_ptr<qmx::Object> heldObject)
        : name(std::move(className)), key(keyOfObject), object(std::move(heldObject))
    {
    }
    void encodeWithCoder(qmx::Coder& coder) const override { coder.encodeObject_forKey(object, key); }
    std::vector<std::string> archiveClassNames() const override { return {name}; }

    const std::string name;
    const std::string_view key;
    const std::shared_ptr<qmx::Object> object;
};

template <class T = QMXTrackAndProcessingInfo> std::shared_ptr<T> reloaded(const std::shared_ptr<qmx::Object>& record)
{
    return std::dynamic_pointer_cast<T>(
        qmx::KeyedUnarchiver::unarchiveObjectWithData(qmx::KeyedArchiver::archivedDataWithRootObject(record)));
}

} // namespace

TEST_F(RecordArchive, WithoutAListComesBackWithoutOne)
{
    EXPECT_FALSE(reloaded(QMXTrackAndProcessingInfo::init())->trackInfos());
    const auto tracks = std::make_shared<qmx::Array>();
    tracks->addObject(numberedTrack());
    tracks->addObject(std::make_shared<qmx::test::Note>());
    const auto record = reloaded(std::make_shared<Foreign>("QMXTrackAndProcessingInfo", QMXTrackInfos, tracks));
    ASSERT_TRUE(record->trackInfos());
    EXPECT_EQ(record->trackInfos()->size(), 1U);
    record->clearTrackInfos();
    const auto again = reloaded(record);
    EXPECT_FALSE(again->trackInfos());
    const auto archive = archiveOf(reloaded(again));
    const auto& objects = objectsOf(archive);
    EXPECT_TRUE(std::ranges::any_of(objects, [](const auto& object) {
        const auto* const fields = object->template as<PropertyListDictionary>();
        return fields && fields->find("picture");
    })) << "what another program stored is kept";
}

TEST_F(RecordArchive, HoldsATracksSixNumbersByteReversed)
{
    const auto archive = archiveOf(numberedTrack());
    EXPECT_EQ(archivedNumber(archive, "QMXTrackBegin"), 72'057'594'037'927'936U);
    EXPECT_EQ(archivedNumber(archive, "QMXTrackEnd"), 0x0201'0000'0000'0000U);
    EXPECT_EQ(archivedNumber(archive, "QMXTrackNumber"), 4'294'967'295U);
    EXPECT_EQ(archivedNumber(archive, "QMXNumberOfTracks"), 0x0300'0000U);
    EXPECT_TRUE(objectsOf(archive).at(1)->as<PropertyListDictionary>()->find("QMXTrackName"));
}

TEST_F(RecordArchive, WithoutAKeyHasNothingUnderIt)
{
    const auto end = qmx::Number::withUnsignedLongLong(0x0201'0000'0000'0000U);
    const auto track = reloaded<Track>(std::make_shared<Foreign>("QMXAudioTrackInfo", QMXTrackEnd, end));
    ASSERT_TRUE(track);
    EXPECT_EQ(track->trackNumber(), 0);
    EXPECT_EQ(track->trackTitle(), std::nullopt);
    EXPECT_FALSE(track->isActive());
    EXPECT_EQ(track->trackEnd(), 0x0102);
    EXPECT_EQ(track->audioTrackInfoVersion(), 3U);
}

TEST_F(RecordArchive, WithoutKeysIsReadInSequence)
{
    const auto track = readSequential<Track>("QMXAudioTrackInfo", text + first + "87 0000000000000001" + next +
                                                                      "87 0000000000000102" + flag);
    ASSERT_TRUE(track);
    EXPECT_EQ(track->description(), "QMXAudioTrackInfo [Ab: IN:1 OUT:258]");
    EXPECT_TRUE(track->isActive());
    EXPECT_EQ(track->trackNumber(), -1);

    const auto range = readSequential<QMXAudioProcessingRangeInfo>(
        "QMXAudioProcessingRangeInfo", text + first + "07" + next + "87 0500000001000000" + "86 92 85");
    ASSERT_TRUE(range);
    EXPECT_EQ(range->description(), "QMXAudioProcessingRangeInfo [Ab: IN:7 OUT:5]") << "the lower half alone";

    const auto info = readSequential<QMXTrackAndProcessingInfo>(
        "QMXTrackAndProcessingInfo",
        "92 85 92 85 92 84 84 84 08 4e534e756d626572 00 84 84 07 4e5356616c7565 00 94 84 01 2a 84 84 01 63 98 01 86");
    ASSERT_TRUE(info);
    EXPECT_TRUE(info->fileHasBeenProcessed());
    EXPECT_FALSE(info->trackInfos() || info->processingInfos());
}

TEST(RecordsInShortMemory, TakeAChangeOrLeaveIt)
{
    qmx::test::withEveryAllocationFailing([](qmx::test::ShortMemory& memory) {
        const auto info = QMXTrackAndProcessingInfo::init();
        const auto range = QMXAudioProcessingRangeInfo::initWithProcessName("name");
        const std::string setting = "a setting with a name that is long";
        const auto track = memory.during([] { return QMXAudioTrackInfo::init(); });
        const QMXTrackAndProcessingInfo::TrackList tracks(2);
        const auto archived = [&] { return qmx::KeyedArchiver::archivedDataWithRootObject(info); };
        memory.during([&] { info->addTrackInfoForAllTracks(tracks); });
        memory.during([&] { range->addProcessingSettingInt_value(setting, 1); });
        const auto data = memory.during(archived);
        const bool isWhole = !memory.hasFailed();
        EXPECT_TRUE(isWhole || !info->trackInfos() || info->trackInfos()->size() == 2);
        EXPECT_TRUE(!isWhole || (track && range->processingSettings()->count() == 1 && data == archived()));
        EXPECT_TRUE(data.empty() || data == archived());
    });
}
