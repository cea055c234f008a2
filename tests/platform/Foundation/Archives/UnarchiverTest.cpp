// SPDX-License-Identifier: MIT
// Sequential archives, written by hand in both byte orders.
#include "Foundation/Archives/Unarchiver.h"
#include "Foundation/Archives/KeyedArchiver.h"
#include "Foundation/Archives/KeyedUnarchiver.h"
#include "Foundation/Archives/OpaqueObject.h"

#include "support/Archives.h"

#include <gtest/gtest.h>

namespace
{

using namespace qmx::test;

const std::string object = "84 84 08 4e534f626a656374 00 85"; // NSObject, the end of a chain
const std::string number = "84 84 08 4e534e756d626572 00 84 84 07 4e5356616c7565 00";

std::string little(const std::string& hex)
{
    return "04 0b 73747265616d7479706564 81e803 84 01 40 " + hex;
}

std::shared_ptr<qmx::Object> read(const std::string& hex, qmx::ArchiveError* error = nullptr)
{
    return qmx::Unarchiver::unarchiveObjectWithData(fromHex(hex), error);
}

std::string described(const std::string& hex)
{
    const auto made = read(hex);
    return made ? made->description() : "nothing";
}

} // namespace

TEST(Unarchiver, ReadsAnArchiveGivenByteByByte)
{
    Note::registerClass();
    const auto note = std::dynamic_pointer_cast<Note>(read(sequentialNote));
    ASSERT_TRUE(note);
    EXPECT_EQ(note->name, "Ab");
    EXPECT_EQ(note->inPlace->intValue(), 5);
    EXPECT_EQ(note->other->description(), "300");
    EXPECT_EQ(note->start->unsignedLongLongValue(), UInt64{1} << 63);
    EXPECT_EQ(note->flag->value(), qmx::Number::Value(true));
}

TEST(Unarchiver, ReadsNumbersOfEveryTypeAndOrder)
{
    const auto value = [](const std::string& type, const std::string& bytes) {
        // strings: "@" 0, NSNumber 1, NSValue 2, NSObject 3, "*" 4, the type 5 (97 refers to it)
        return described(little("84" + number + object + "84 01 2a 84 84 01" + type + "97" + bytes + "86"));
    };
    EXPECT_EQ(value("69", "92"), "-110");
    EXPECT_EQ(value("49", "92"), "146");
    EXPECT_EQ(value("71", "87 00000000000000 80"), "-9223372036854775808");
    EXPECT_EQ(value("73", "81 9100"), "145");
    EXPECT_EQ(value("64", "82 80014b01"), "21692800");
    EXPECT_EQ(value("66", "83 0000003f"), "0.5");
    EXPECT_EQ(value("63", "85"), "-123");
    EXPECT_EQ(value("69", "84"), "nothing");
    EXPECT_EQ(value("7a", "01"), "nothing") << "an unknown type";
    EXPECT_EQ(described("04 0b 7479706564 73747265616d 81 03e8 84 01 40 84" + number + object +
                        "84 01 2a 84 84 01 69 97 82 00010000 86"),
              "65536");
}

TEST(Unarchiver, ReadsContainersAndKeepsTheRest)
{
    // an array of data, nil and itself again as the same object
    const std::string array = "84 84 84 07 4e534172726179 00" + object +
                              "84 01 69 03 92 84 84 84 06 4e5344617461 00 94 "
                              "95 02 84 04 5b32635d 0aff 86 92 85 92 95 86";
    const auto list = std::dynamic_pointer_cast<qmx::Array>(read(little(array)));
    ASSERT_TRUE(list && list->count() == 3);
    const auto* data = dynamic_cast<const qmx::Data*>(list->elements()[0].get());
    ASSERT_TRUE(data);
    EXPECT_EQ(data->bytes(), (std::vector<std::uint8_t>{0x0A, 0xFF}));
    EXPECT_EQ(list->elements()[1], nullptr);
    EXPECT_EQ(list->elements()[2], list->elements()[0]);

    const std::string alien =
        little("84 84 84 05 416c69656e 00" + object + "84 06 7b503d66667d 01 02 84 01 2b 02 4162 86");
    const auto opaque = std::dynamic_pointer_cast<qmx::OpaqueObject>(read(alien));
    ASSERT_TRUE(opaque);
    const auto again = std::dynamic_pointer_cast<qmx::OpaqueObject>(
        qmx::KeyedUnarchiver::unarchiveObjectWithData(qmx::KeyedArchiver::archivedDataWithRootObject(opaque)));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->className(), "Alien");
    const auto* entry = (*again->table())[again->index()]->as<qmx::PropertyListDictionary>();
    EXPECT_EQ(*entry->find("$0")->as<qmx::PropertyListArray>()->at(1)->as<float>(), 2);
    EXPECT_EQ(*entry->find("$1")->as<std::string>(), "Ab");
}

TEST(Unarchiver, SurvivesEveryDamage)
{
    Note::registerClass();
    qmx::ArchiveError error = qmx::ArchiveError::none;
    EXPECT_FALSE(read("00", &error));
    EXPECT_EQ(error, qmx::ArchiveError::incomprehensible);
    damageEveryByte(fromHex(sequentialNote), [&](std::span<const std::uint8_t> bytes) {
        const auto made = qmx::Unarchiver::unarchiveObjectWithData(bytes, &error);
        EXPECT_TRUE(!made || error == qmx::ArchiveError::none);
    });
    // elements without bytes, and braces without an end
    EXPECT_EQ(described(little("84 84 84 01 41 00" + object + "84 13 5b39395b39395b39395b39397b3d7d5d5d5d5d" +
                               std::string(400, '0'))),
              "nothing");
    EXPECT_EQ(described(little("84 84 84 01 41 00" + object + "84 06 7b7b7b7b7b7b 86")), "nothing");
    std::string deep;
    for (int i = 0; i < 100; ++i)
        deep += i == 0 ? "84 84 84 01 41 00" + object + "92" : " 84 93 92";
    EXPECT_EQ(described(little(deep + "85")), "nothing");
}
