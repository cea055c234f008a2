// SPDX-License-Identifier: MIT
// AIFF files made chunk by chunk, and what is stored in them and read back.
#pragma once

#include "FileRelated/QMXAudioFile.h"
#include "Foundation/Archives/KeyedArchiver.h"
#include "Foundation/ByteFields.h"
#include "Tracks/Store/QMXAudioFileTrackInfoReaderWriter.h"
#include "Tracks/Store/QMXAudioTrackInfoReaderWriterFactory.h"
#include "support/CapturedLog.h"
#include "support/MemoryDisk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace qmx::test::aiff
{

using Bytes = std::vector<UInt8>;
using Factory = QMXAudioTrackInfoReaderWriterFactory;
using Record = std::shared_ptr<QMXTrackAndProcessingInfo>;

inline const std::string path = "/d/a.aif";
inline constexpr std::size_t block = 524'288;

inline UInt32 get32(const Bytes& bytes, std::size_t at)
{
    return load32(&bytes[at], ByteOrder::big);
}

inline Bytes operator+(Bytes one, const Bytes& other)
{
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

inline Bytes chunk(const std::string& id, const Bytes& data)
{
    ByteWriter chunk(ByteOrder::big);
    chunk.append(id).u32(static_cast<UInt32>(data.size())).append(data).zeros(data.size() & 1);
    return chunk.bytes();
}

inline Bytes form(const Bytes& chunks)
{
    return chunk("FORM", Bytes{'A', 'I', 'F', 'F'} + chunks);
}

/// An application chunk of ours with `size` bytes behind its size field.
inline Bytes trackChunk(const Bytes& archive, std::size_t size, UInt32 version = 3, bool hostVersion = false)
{
    ByteWriter data(ByteOrder::big);
    data.append("tRaK").integer(version, 4, hostVersion ? ByteOrder::little : ByteOrder::big);
    data.u32(static_cast<UInt32>(archive.size())).append(archive);
    return chunk("APPL", data.zeros(std::max(size, data.bytes().size()) - data.bytes().size()).bytes());
}

inline const Bytes common = chunk("COMM", {0, 1, 0, 0, 0, 4, 0, 16, 0x40, 0x0e, 0xac, 0x44, 0, 0, 0, 0, 0, 0});
inline const Bytes sound = chunk("SSND", {0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8});
/// Chunks that are none of the store's business; `mark` tells one set of them from another.
inline std::vector<Bytes> foreignChunks(UInt8 mark)
{
    return {chunk("MARK", {0, 0, mark}),     chunk("ID3 ", {1, 2, 3, mark}),
            chunk("NAME", {'n', 'a', mark}), chunk("APPL", {'o', 't', 'h', 'r', mark}),
            chunk("COMT", {0, 0, mark}),     chunk("INST", Bytes(20, mark))};
}

inline Bytes joined(const std::vector<Bytes>& chunks)
{
    Bytes all;
    for (const Bytes& one : chunks)
        all = all + one;
    return all;
}

inline const Bytes before = joined(foreignChunks(1)) + common;
inline const Bytes behind = joined(foreignChunks(2));

inline Record record(int tracks, const std::string& title = "Title")
{
    auto info = QMXTrackAndProcessingInfo::init();
    for (int i = 0; i < tracks; ++i)
        info->addTrackInfo(QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(
            title, static_cast<UInt64>(i), static_cast<UInt64>(i) + 1, true));
    return info;
}

inline Bytes archive(const Record& info)
{
    return KeyedArchiver::archivedDataWithRootObject(info);
}

/// The writer's last status, which tells whether the record is in the file.
inline OSStatus store(const Record& info, const std::string& file = path, const std::string& reason = "")
{
    const auto writer = Factory::writerWithAudioFilePath(file);
    writer->setTrackAndProcessingInfo(info);
    EXPECT_EQ(writer->write(), 0);
    EXPECT_EQ(writer->lastStatus() == noErr, writer->lastError().empty());
    EXPECT_THAT(writer->lastError(), testing::HasSubstr(reason));
    return writer->lastStatus();
}

/// Tracks that the factory's reader finds; -1 for no record.
inline int storedTracks()
{
    const Record info = Factory::readerWithAudioFilePath(path)->read();
    return !info ? -1 : info->trackInfos() ? static_cast<int>(info->trackInfos()->size()) : 0;
}

/// Tracks that a fresh reader of the older class finds; -1 for no record.
inline int tracksOfOlderClass()
{
    const auto older = QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(path);
    return older->readTrackInfosFromFile() ? static_cast<int>(older->trackInfos()->size()) : -1;
}

inline bool storeWithOlderClass(int tracks)
{
    const auto older = QMXAudioFileTrackInfoReaderWriter::initWithAudioFilePath(path);
    older->addTrackInfoForAllTracks(*record(tracks)->trackInfos());
    return older->writeTrackInfosToFile();
}

class TrackStore : public testing::Test
{
protected:
    void putFile(const Bytes& bytes) { disk.setContents(path, bytes); }
    Bytes file() const { return disk.contents(path); }

    MemoryDisk disk;
    CapturedLog log;
};

/// The audio bytes that the audio file object gives after bringing the file in line.
inline Bytes audioBytes()
{
    const auto audio = QMXAudioFile::initWithPath_accessMode(path, QMXAudioFileAccessMode::readWrite);
    Bytes bytes(100);
    auto length = static_cast<UInt32>(bytes.size());
    if (!audio->open() || !audio->read_length_fromOffset(bytes.data(), &length, 0))
        length = 0;
    EXPECT_TRUE(audio->close());
    bytes.resize(length);
    return bytes;
}

inline std::string_view textOf(const Bytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline bool holds(const Bytes& bytes, const Bytes& part)
{
    return textOf(bytes).find(textOf(part)) != std::string_view::npos;
}

/// Counts the chunks of ours, journals included.
inline int chunksOfOurs(const Bytes& bytes)
{
    int count = 0;
    for (const std::string_view id : {"tRaK", "tRaJ"})
        for (auto at = textOf(bytes).find(id); at != std::string_view::npos; at = textOf(bytes).find(id, at + 1))
            ++count;
    return count;
}

} // namespace qmx::test::aiff
