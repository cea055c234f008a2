// SPDX-License-Identifier: MIT
// Binary property lists byte by byte, damaged ones, and exchange in both directions with another implementation
// (Python's).
#include "Foundation/Archives/PropertyList.h"

#include "platform/Foundation/Files/WholeFiles.h"
#include "support/Archives.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

using namespace qmx::test;

// The bytes of a list of one object, which are given in hexadecimal digits.
std::vector<std::uint8_t> listOf(const std::string& objectHex)
{
    auto bytes = fromHex("62706c6973743030" + objectHex);
    const auto table = static_cast<std::uint8_t>(bytes.size());
    for (const std::uint8_t byte : fromHex("08 000000000000 01 01 0000000000000001 0000000000000000 00000000000000"))
        bytes.push_back(byte);
    bytes.push_back(table);
    return bytes;
}

std::string rewritten(const std::string& objectHex)
{
    const auto value = qmx::parseBinaryPropertyList(listOf(objectHex));
    if (!value)
        return "unreadable";
    const auto bytes = qmx::binaryPropertyListData(*value);
    return toHex(std::span(bytes).subspan(8, bytes.size() - 8 - 33));
}

qmx::PropertyListValue everyKind(std::uint64_t integers = 300)
{
    qmx::PropertyListDictionary all;
    all.add("yes", true);
    all.add("small", qmx::PropertyListInteger{200, false});
    all.add("negative", qmx::PropertyListInteger{~std::uint64_t{0}, true});
    all.add("huge", qmx::PropertyListInteger{~std::uint64_t{0}, false});
    all.add("single", 0.1f);
    all.add("double", 0.5);
    all.add("date", qmx::PropertyListDate{86400});
    all.add("data", qmx::PropertyListData{0, 1, 255});
    all.add("text", std::string("na\xC3\xAFve \xF0\x9D\x84\x9E"));
    qmx::PropertyListArray many;
    for (std::uint64_t i = 0; i < integers; ++i)
        many.push_back(shared(qmx::PropertyListInteger{i * 1000, false}));
    all.add("many", std::move(many));
    return all;
}

} // namespace

TEST(PropertyList, WritesWhatItReadByteByByte)
{
    const auto archive = qmx::parseBinaryPropertyList(fromHex(keyedNote));
    ASSERT_TRUE(archive);
    EXPECT_EQ(toHex(qmx::binaryPropertyListData(*archive)), keyedNote);
}

TEST(PropertyList, KeepsKindsAndWidths)
{
    for (const std::string hex :
         {"09", "10ff", "11ffff", "12ffffffff", "13ffffffffffffffff", "137fffffffffffffff",
          "1400000000000000008000000000000000", "223f000000", "233fe0000000000000", "3341d2d0a7a0000000", "4100",
          "80ff", "81ffff", "83ffffffff", "8780000000000000ff", "53610062"})
        EXPECT_EQ(rewritten(hex), hex);
    EXPECT_EQ(rewritten("6300e9d834dd1e"), "6300e9d834dd1e") << "a character of two units";
    EXPECT_EQ(rewritten("130000000000000007"), "1007") << "not minimal";
    EXPECT_EQ(rewritten("82000007"), "8007") << "an odd width";
    EXPECT_EQ(rewritten("62d834 0041"), "62fffd0041") << "half a character";
    EXPECT_EQ(rewritten("5261ff"), "620061fffd") << "no UTF-8";
}

TEST(PropertyList, MergesOnlyEqualValuesOfOneKindAndWidth)
{
    const qmx::PropertyListValue list = qmx::PropertyListArray{shared(1.0f),
                                                               shared(1.0),
                                                               shared(qmx::PropertyListInteger{1, false}),
                                                               shared(true),
                                                               shared(1.0f),
                                                               shared(std::string("a")),
                                                               shared(qmx::PropertyListData{'a'}),
                                                               shared(std::string("a"))};
    const auto bytes = qmx::binaryPropertyListData(list);
    EXPECT_EQ(toHex(std::span(bytes).subspan(8, 9)), "a80102030401050605");
}

TEST(PropertyList, RefusesWhatWouldMultiplyOrNeverEnd)
{
    EXPECT_EQ(rewritten("a100"), "unreadable") << "contains itself";
    for (const std::string hex :
         {"00", "0f", "15ff", "33", "4f13ffffffffffffffff", "4f137fffffffffffffff", "5f12ffffffff", "6f1240000000",
          "af12ffffffff", "df1380000000000000ff", "a105", "70", "c100", "d10000"})
        EXPECT_EQ(rewritten(hex), "unreadable") << hex;
    qmx::PropertyListRef nested = shared(qmx::PropertyListArray{});
    for (std::size_t i = 1; i < qmx::propertyListDepthLimit; ++i)
        nested = shared(qmx::PropertyListArray(100, nested)); // 100^63 leaves if visited one by one
    const auto bytes = qmx::binaryPropertyListData(*nested);
    EXPECT_LT(bytes.size(), 10000u);
    ASSERT_TRUE(qmx::parseBinaryPropertyList(bytes));
    EXPECT_TRUE(qmx::binaryPropertyListData(qmx::PropertyListArray{nested}).empty());

    auto overlapping = fromHex("62706c6973743030"); // each object lists most of the bytes as references
    for (int i = 0; i < 120; ++i)
        overlapping.insert(overlapping.end(), {0xAF, 0x10, 0xC8});
    overlapping.insert(overlapping.end(), 400, 119);
    const std::size_t table = overlapping.size();
    for (std::size_t i = 0; i < 120; ++i)
        overlapping.insert(overlapping.end(), {0, static_cast<std::uint8_t>(8 + 3 * i % 240)});
    for (const std::uint8_t byte : fromHex("000000000000 0201 0000000000000078 0000000000000000 000000000000"))
        overlapping.push_back(byte);
    overlapping.insert(overlapping.end(), {static_cast<std::uint8_t>(table >> 8), static_cast<std::uint8_t>(table)});
    EXPECT_FALSE(qmx::parseBinaryPropertyList(overlapping));
}

TEST(PropertyList, SurvivesEveryDamage)
{
    std::size_t readable = 0;
    damageEveryByte(qmx::binaryPropertyListData(everyKind(5)), [&](std::span<const std::uint8_t> bytes) {
        if (const auto value = qmx::parseBinaryPropertyList(bytes)) {
            ++readable;
            EXPECT_TRUE(qmx::parseBinaryPropertyList(qmx::binaryPropertyListData(*value)));
        }
    });
    EXPECT_GT(readable, 0u);
}

TEST(PropertyList, AgreesWithPython)
{
    const TemporaryFolder folder;
    const std::string ours = folder.path("ours");
    const std::string theirs = folder.path("theirs");
    write(ours, qmx::binaryPropertyListData(everyKind()));
    const std::string script =
        "import plistlib as p,datetime\n"
        "v=p.load(open('" +
        ours +
        "','rb'))\n"
        "assert v=={'yes':True,'small':200,'negative':-1,'huge':2**64-1,'single':v['single'],'double':.5,"
        "'date':datetime.datetime(2001,1,2),'data':bytes([0,1,255]),'text':'na\\u00efve \\U0001d11e',"
        "'many':[i*1000 for i in range(300)]},v\n"
        "assert abs(v['single']-.1)<1e-8 and list(v)[0]=='yes'\n"
        "p.dump(v,open('" +
        theirs + "','wb'),fmt=p.FMT_BINARY,sort_keys=False)\n";
    ASSERT_EQ(std::system(("/usr/bin/python3 -c \"" + script + "\"").c_str()), 0);
    auto value = qmx::parseBinaryPropertyList(contents(theirs));
    ASSERT_TRUE(value && value->as<qmx::PropertyListDictionary>());
    const auto* single = value->as<qmx::PropertyListDictionary>()->find("single");
    ASSERT_TRUE(single && single->as<double>()) << "Python writes every real with 64 bits";
    const auto bytes = qmx::binaryPropertyListData(*value);
    EXPECT_EQ(bytes.size(), contents(theirs).size()) << "both merge equal values";
}
