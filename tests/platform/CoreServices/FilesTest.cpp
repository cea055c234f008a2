// SPDX-License-Identifier: MIT
#include "CoreServices/Files.h"

#include "platform/Foundation/Files/WholeFiles.h"
#include "support/TemporaryFolder.h"

#include <filesystem>

using qmx::test::write;

TEST(FSRef, FollowsThePathAndIsEmptyForWhatIsMissing)
{
    const qmx::test::TemporaryFolder folder;
    const auto makeRef = [](const std::string& path, FSRef& reference) {
        return FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &reference, nullptr);
    };
    FSRef reference{"stale"};
    EXPECT_EQ(makeRef(folder.path("none"), reference), fnfErr);
    EXPECT_TRUE(reference.path.empty());
    EXPECT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoNone, nullptr, nullptr, nullptr, nullptr), errFSBadFSRef);
    write(folder.path("file"), {1, 2});
    ASSERT_EQ(makeRef(folder.path("./file"), reference), noErr);
    FSSpec fileSpec;
    FSCatalogInfo info;
    ASSERT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoDataSizes, &info, nullptr, &fileSpec, nullptr), noErr);
    EXPECT_EQ(fileSpec.name, "file");
    EXPECT_EQ(info.dataLogicalSize, 2u);
    UInt8 text[4];
    EXPECT_EQ(FSRefMakePath(&reference, text, sizeof text), paramErr) << "no room for the path";
}

TEST(FSRef, IsWhatTheSystemFindsUnderThePath)
{
    const qmx::test::TemporaryFolder folder;
    std::filesystem::create_directories(folder.path("real/inner"));
    std::filesystem::create_directory_symlink(folder.path("real/inner"), folder.path("link"));
    write(folder.path("real/file"), {1});
    write(folder.path("file"), {1, 2});
    FSRef reference;
    const auto makeRef = [&](const std::string& name) {
        return FSPathMakeRef(reinterpret_cast<const UInt8*>(folder.path(name).c_str()), &reference, nullptr);
    };
    EXPECT_EQ(makeRef("none/../file"), fnfErr);
    EXPECT_EQ(makeRef("file/"), fnfErr) << "it is no folder";
    ASSERT_EQ(makeRef("link/../file"), noErr);
    FSCatalogInfo info;
    ASSERT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoDataSizes, &info, nullptr, nullptr, nullptr), noErr);
    EXPECT_EQ(info.dataLogicalSize, 1u);
    FSSpec place;
    ASSERT_EQ(makeRef("real/inner/"), noErr);
    ASSERT_EQ(FSGetCatalogInfo(&reference, kFSCatInfoNone, nullptr, nullptr, &place, nullptr), noErr);
    EXPECT_EQ(place.name, "inner");
}
