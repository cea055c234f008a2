// SPDX-License-Identifier: MIT
// Keyed archives: their bytes, the objects read back, archives of other writers, and damaged ones.
#include "Foundation/Archives/KeyedArchiver.h"
#include "Foundation/Archives/KeyedUnarchiver.h"
#include "Foundation/Archives/OpaqueObject.h"
#include "Foundation/Archives/PropertyList.h"

#include "platform/Foundation/Files/WholeFiles.h"
#include "support/Archives.h"
#include "support/CapturedLog.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

using namespace qmx::test;
using qmx::ArchiveError;
using qmx::PropertyListArray;
using qmx::PropertyListDictionary;
using qmx::PropertyListUID;

class KeyedArchive : public testing::Test
{
protected:
    void SetUp() override { Note::registerClass(); }

    template <class T> std::shared_ptr<T> read(std::span<const std::uint8_t> bytes)
    {
        return std::dynamic_pointer_cast<T>(qmx::KeyedUnarchiver::unarchiveObjectWithData(bytes, &error));
    }
    template <class T> std::shared_ptr<T> reread(const std::shared_ptr<const qmx::Object>& object)
    {
        return read<T>(qmx::KeyedArchiver::archivedDataWithRootObject(object));
    }

    ArchiveError error = ArchiveError::none;
};

// An archive whose object table is "$null" and `objects`, the first one of which is the root.
std::vector<std::uint8_t> archiveOf(PropertyListArray objects)
{
    objects.insert(objects.begin(), shared(std::string("$null")));
    PropertyListDictionary top;
    top.add("root", PropertyListUID{1});
    PropertyListDictionary archive;
    archive.add("$version", qmx::PropertyListInteger{100000, false});
    archive.add("$archiver", std::string("NSKeyedArchiver"));
    archive.add("$top", std::move(top));
    archive.add("$objects", std::move(objects));
    return qmx::binaryPropertyListData(archive);
}

qmx::PropertyListRef fields(std::vector<std::pair<std::string, qmx::PropertyListValue>> values)
{
    PropertyListDictionary entry;
    for (auto& [key, value] : values)
        entry.add(std::move(key), std::move(value));
    return shared(std::move(entry));
}

qmx::PropertyListRef classEntry(const std::string& name)
{
    return fields(
        {{"$classname", name}, {"$classes", PropertyListArray{shared(name), shared(std::string("NSObject"))}}});
}

std::shared_ptr<Note> filledNote()
{
    auto note = std::make_shared<Note>();
    note->name = "$null";
    note->start = qmx::Number::withUnsignedLongLong(UInt64{1} << 63);
    note->flag = qmx::Number::withBool(true);
    note->picture = qmx::Image::initWithData({1, 2, 3});
    auto settings = std::make_shared<qmx::Dictionary>();
    settings->setObject_forKey(qmx::Number::withFloat(0.5f), "gain");
    settings->setObject_forKey(qmx::Number::withInt(-3), "steps");
    note->other = settings;
    return note;
}

} // namespace

TEST_F(KeyedArchive, ReadsAnArchiveGivenByteByByte)
{
    const auto note = read<Note>(fromHex(keyedNote));
    ASSERT_TRUE(note);
    EXPECT_EQ(note->name, "Ab");
    EXPECT_EQ(note->start->unsignedLongLongValue(), UInt64{1} << 63);
    EXPECT_TRUE(note->flag->boolValue());
    EXPECT_EQ(note->other, nullptr);
    EXPECT_EQ(note->inPlace->intValue(), 7);
    EXPECT_EQ(note->picture, nullptr) << "a missing key";
}

TEST_F(KeyedArchive, BringsBackValuesWithTheirTypes)
{
    const auto note = reread<Note>(filledNote());
    ASSERT_TRUE(note);
    EXPECT_EQ(note->name, "$null") << "the text, not nil";
    EXPECT_EQ(note->start->value(), qmx::Number::Value(UInt64{1} << 63));
    EXPECT_EQ(note->flag->value(), qmx::Number::Value(true));
    EXPECT_EQ(note->picture->data(), (std::vector<std::uint8_t>{1, 2, 3}));
    const auto* settings = dynamic_cast<const qmx::Dictionary*>(note->other.get());
    ASSERT_TRUE(settings);
    EXPECT_EQ(dynamic_cast<const qmx::Number&>(*settings->objectForKey("gain")).value(), qmx::Number::Value(0.5f));
    EXPECT_EQ(dynamic_cast<const qmx::Number&>(*settings->objectForKey("steps")).value(),
              qmx::Number::Value(SInt32{-3}));
}

TEST_F(KeyedArchive, KeepsOneObjectOneObject)
{
    const auto first = filledNote();
    const auto second = filledNote();
    first->picture = second->picture = qmx::Image::initWithData(std::vector<std::uint8_t>(5000));
    const auto bytes = qmx::KeyedArchiver::archivedDataWithRootObject(
        std::make_shared<qmx::Array>(qmx::Array::Elements{first, second, first}));
    EXPECT_LT(bytes.size(), 6000u) << "the picture is there once";
    const auto list = read<qmx::Array>(bytes);
    ASSERT_TRUE(list && list->count() == 3);
    EXPECT_EQ(list->elements()[0], list->elements()[2]);
    EXPECT_NE(list->elements()[0], list->elements()[1]);
    EXPECT_EQ(dynamic_cast<const Note&>(*list->elements()[0]).picture,
              dynamic_cast<const Note&>(*list->elements()[1]).picture);
}

TEST_F(KeyedArchive, CarriesUnknownClassesIntoTheNextArchive)
{
    // 1 note, 2 unknown that refers to itself and to the text 3, 4 and 5 classes, 6 a date
    const auto bytes = archiveOf({fields({{"gone", PropertyListUID{2}}, {"$class", PropertyListUID{4}}}),
                                  fields({{"me", PropertyListUID{2}},
                                          {"list", PropertyListArray{shared(PropertyListUID{3})}},
                                          {"past", PropertyListUID{99}},
                                          {"$class", PropertyListUID{5}}}),
                                  shared(std::string("kept")), classEntry("Note"), classEntry("Alien")});
    auto note = read<Note>(bytes);
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(note);
        const auto* alien = dynamic_cast<const qmx::OpaqueObject*>(note->other.get());
        ASSERT_TRUE(alien);
        EXPECT_EQ(alien->className(), "Alien");
        const auto* entry = (*alien->table())[alien->index()]->as<PropertyListDictionary>();
        EXPECT_EQ(entry->find("me")->as<PropertyListUID>()->index, alien->index());
        const auto text = entry->find("list")->as<PropertyListArray>()->front()->as<PropertyListUID>()->index;
        EXPECT_EQ(*(*alien->table())[text]->as<std::string>(), "kept");
        note = reread<Note>(note);
    }
}

TEST_F(KeyedArchive, FindsThePictureInAnImageObject)
{
    const qmx::PropertyListData tiff{'I', 'I', '*', 0, 9, 9};
    const auto bytes = archiveOf(
        {fields({{"picture", PropertyListUID{2}}, {"$class", PropertyListUID{5}}}),
         fields(
             {{"NSColor", qmx::PropertyListData(20)}, {"NSReps", PropertyListUID{3}}, {"$class", PropertyListUID{6}}}),
         fields({{"NS.objects", PropertyListArray{shared(PropertyListUID{4}), shared(PropertyListUID{2})}}}),
         fields({{"NSTIFFRepresentation", PropertyListUID{7}}, {"$class", PropertyListUID{6}}}), classEntry("Note"),
         classEntry("NSImage"), shared(tiff)});
    const auto note = read<Note>(bytes);
    ASSERT_TRUE(note && note->picture);
    EXPECT_EQ(note->picture->data(), tiff);
}

TEST_F(KeyedArchive, RefusesCirclesDepthAndReferencesToNowhere)
{
    const auto list = [](std::vector<std::uint64_t> places) {
        PropertyListArray uids;
        for (const std::uint64_t place : places)
            uids.push_back(shared(PropertyListUID{place}));
        return fields({{"NS.objects", std::move(uids)}, {"$class", PropertyListUID{3}}});
    };
    EXPECT_FALSE(read<qmx::Object>(archiveOf({list({2}), list({1}), classEntry("NSArray")})));
    EXPECT_EQ(error, ArchiveError::inconsistent) << "a circle";
    EXPECT_FALSE(read<qmx::Object>(archiveOf({list({4}), list({}), classEntry("NSArray")})));
    EXPECT_EQ(error, ArchiveError::inconsistent) << "past the table";
    EXPECT_TRUE(read<qmx::Array>(archiveOf({list({2, 2}), list({}), classEntry("NSArray")})));
    EXPECT_EQ(error, ArchiveError::none);

    std::shared_ptr<qmx::Array> nested = std::make_shared<qmx::Array>();
    for (int depth = 1; depth < 64; ++depth)
        nested = std::make_shared<qmx::Array>(qmx::Array::Elements(2, nested));
    EXPECT_TRUE(reread<qmx::Array>(nested));
    const CapturedLog log;
    EXPECT_TRUE(
        qmx::KeyedArchiver::archivedDataWithRootObject(std::make_shared<qmx::Array>(qmx::Array::Elements{nested}))
            .empty());

    // many objects that share one long text: a small file, but huge objects
    PropertyListArray texts(30000, shared(std::string(100000, 'x')));
    texts.insert(texts.begin(), {list({}), shared(std::string()), classEntry("NSArray")});
    PropertyListArray uids;
    for (std::uint64_t i = 4; i < 30000; ++i)
        uids.push_back(shared(PropertyListUID{i}));
    texts[0] = fields({{"NS.objects", std::move(uids)}, {"$class", PropertyListUID{3}}});
    EXPECT_FALSE(read<qmx::Object>(archiveOf(texts)));
    EXPECT_EQ(error, ArchiveError::inconsistent);
}

TEST_F(KeyedArchive, SurvivesEveryDamage)
{
    damageEveryByte(fromHex(keyedNote), [&](std::span<const std::uint8_t> bytes) {
        const auto object = read<qmx::Object>(bytes);
        EXPECT_TRUE(!object || error == ArchiveError::none);
        EXPECT_FALSE(qmx::KeyedArchiver::archivedDataWithRootObject(object).empty());
    });
    read<qmx::Object>({});
    EXPECT_EQ(error, ArchiveError::incomprehensible);
}

TEST_F(KeyedArchive, IsReadByPythonAndLibplist)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("archive");
    const auto bytes = qmx::KeyedArchiver::archivedDataWithRootObject(filledNote());
    write(path, bytes);
    const std::string script = "import plistlib as p\n"
                               "a=p.load(open('" +
                               path +
                               "','rb'))\n"
                               "o=a['\\$objects']\n"
                               "n=o[a['\\$top']['root'].data]\n"
                               "g=lambda k:o[n[k].data]\n"
                               "assert g('start')==2**63 and g('flag') is True and g('picture')==bytes([1,2,3]),o\n"
                               "s=g('gone')\n"
                               "assert [o[u.data] for u in s['NS.keys']]==['gain','steps'],o\n"
                               "assert [o[u.data] for u in s['NS.objects']]==[.5,-3],o\n"
                               "assert o[n['\\$class'].data]['\\$classes']==['Note','NSObject'],o\n";
    EXPECT_EQ(std::system(("/usr/bin/python3 -c \"" + script + "\"").c_str()), 0);
    EXPECT_EQ(
        std::system(("plistutil -i " + path + " -f xml | grep -q '<integer>9223372036854775808</integer>'").c_str()),
        0);
}
