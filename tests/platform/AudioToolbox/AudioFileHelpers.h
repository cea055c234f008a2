// SPDX-License-Identifier: MIT
// Short forms of the calls that tests of audio files make, and a walk over chunks that forgives nothing.
#pragma once

#include "AudioToolbox/AudioFile.h"
#include "Foundation/ByteFields.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace qmx::test
{

using ByteBlock = std::vector<std::uint8_t>;

inline AudioStreamBasicDescription linear(AudioFormatFlags flags, UInt32 bits, UInt32 channels, Float64 rate = 44100)
{
    const UInt32 frame = (bits + 7) / 8 * channels;
    return {rate, kAudioFormatLinearPCM, flags, frame, 1, frame, channels, bits, 0};
}

inline AudioStreamBasicDescription companded(AudioFormatID coding, UInt32 channels)
{
    return {8000, coding, 0, channels, 1, channels, channels, 8, 0};
}

struct OpenResult {
    OSStatus status = noErr;
    AudioFileID file = nullptr;
};

inline OpenResult openFile(const std::string& path, SInt8 permissions = fsRdPerm)
{
    OpenResult result;
    const FSRef reference{path};
    result.status = AudioFileOpen(&reference, permissions, 0, &result.file);
    return result;
}

inline OpenResult createFile(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& format)
{
    OpenResult result;
    const std::filesystem::path whole(path);
    const FSRef parent{whole.parent_path().string()};
    const CFStringRef name = CFStringCreate(whole.filename().string());
    result.status = AudioFileCreate(&parent, name, type, &format, 0, nullptr, &result.file);
    CFRelease(name);
    return result;
}

template <class Value> Value property(AudioFileID file, AudioFilePropertyID id)
{
    Value value{};
    UInt32 size = sizeof value;
    EXPECT_EQ(AudioFileGetProperty(file, id, &size, &value), noErr);
    return value;
}

/// An open file that closes itself, without an error.
struct Opened : OpenResult {
    explicit Opened(const OpenResult& result) : OpenResult(result) {}
    ~Opened() { EXPECT_TRUE(!file || AudioFileClose(file) == noErr); }
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
};

/// A property of the file at `path`.
template <class Value> Value propertyAt(const std::string& path, AudioFilePropertyID id)
{
    const Opened opened(openFile(path));
    EXPECT_EQ(opened.status, noErr) << path;
    return property<Value>(opened.file, id);
}

inline AudioStreamBasicDescription formatOf(AudioFileID file)
{
    return property<AudioStreamBasicDescription>(file, kAudioFilePropertyDataFormat);
}

inline UInt64 bytesIn(AudioFileID file)
{
    return property<UInt64>(file, kAudioFilePropertyAudioDataByteCount);
}

/// All audio of the file.
inline ByteBlock audioOf(AudioFileID file)
{
    ByteBlock data(bytesIn(file));
    auto count = static_cast<UInt32>(data.size());
    if (count > 0) {
        EXPECT_EQ(AudioFileReadBytes(file, false, 0, &count, data.data()), noErr);
    }
    EXPECT_EQ(count, data.size());
    return data;
}

inline OSStatus writeAudio(AudioFileID file, SInt64 start, const ByteBlock& data, UInt32* written = nullptr)
{
    auto count = static_cast<UInt32>(data.size());
    const OSStatus status = AudioFileWriteBytes(file, false, start, &count, data.data());
    if (written)
        *written = count;
    return status;
}

/// All audio of the file at `path`.
inline ByteBlock audioAt(const std::string& path)
{
    const Opened opened(openFile(path));
    EXPECT_EQ(opened.status, noErr) << path;
    return opened.file ? audioOf(opened.file) : ByteBlock();
}

/// A new file of `audio`.
inline void makeFile(const std::string& path, AudioFileTypeID type, const AudioStreamBasicDescription& format,
                     const ByteBlock& audio)
{
    const Opened made(createFile(path, type, format));
    ASSERT_EQ(made.status, noErr) << path;
    EXPECT_EQ(writeAudio(made.file, 0, audio), noErr);
}

/// `count` bytes of a sequence in which no two near places look alike; `start` is the first one's place.
inline ByteBlock pattern(std::size_t count, std::size_t start = 0)
{
    static const ByteBlock period = [] {
        ByteBlock bytes(65521);
        std::minstd_rand random;
        std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(random() >> 8); });
        return bytes;
    }();
    ByteBlock bytes;
    bytes.reserve(count);
    for (std::size_t at = start % period.size(); bytes.size() < count; at = 0) {
        const auto part = static_cast<long>(std::min(count - bytes.size(), period.size() - at));
        const auto from = period.begin() + static_cast<long>(at);
        bytes.insert(bytes.end(), from, from + part);
    }
    return bytes;
}

inline ByteBlock contentsOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file)
        return {};
    ByteBlock bytes(static_cast<std::size_t>(file.tellg()));
    file.seekg(0).read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

inline void writeFile(const std::string& path, const ByteBlock& bytes)
{
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// What a command prints that runs in a folder; it must not fail.
inline std::string run(const std::string& command, const TemporaryFolder& folder)
{
    const std::string line = "cd " + folder.path("") + " && " + command + " >log 2>&1 </dev/null";
    const int status = std::system(line.c_str());
    const ByteBlock log = contentsOf(folder.path("log"));
    EXPECT_EQ(status, 0) << command << "\n" << std::string(log.begin(), log.end());
    return {log.begin(), log.end()};
}

/// Whether the chunks have 64-bit sizes and stand in a file that does not tell its own.
inline bool isCAF(const ByteBlock& file)
{
    return std::equal(file.begin(), file.begin() + 4, "caff");
}

inline ByteOrder orderOf(const ByteBlock& file)
{
    return file.at(3) == 'F' ? ByteOrder::little : ByteOrder::big;
}

/// Appends a chunk to a whole form, as a program that knows only the form's size would.
inline void appendChunk(ByteBlock& file, const char* id, const ByteBlock& data)
{
    const std::size_t alignment = isCAF(file) ? 1 : 2;
    file.resize(file.size() + file.size() % alignment);
    ByteWriter chunk(orderOf(file));
    chunk.append(std::string_view(id)).integer(data.size(), isCAF(file) ? 8 : 4, orderOf(file)).append(data);
    file.insert(file.end(), chunk.bytes().begin(), chunk.bytes().end());
    file.resize(file.size() + file.size() % alignment);
    if (!isCAF(file))
        store32(&file[4], static_cast<UInt32>(file.size() - 8), orderOf(file));
}

/// `text` with the first place of `part` changed.
inline std::string replaced(std::string text, const std::string& part, const std::string& by)
{
    const auto at = text.find(part);
    return at == std::string::npos ? text : text.replace(at, part.size(), by);
}

struct FoundChunk {
    std::string id;
    ByteBlock data;
};

/// The chunks inside the form, which must follow each other without a fault to its very end. Only the last pad byte may
/// be missing or not counted.
inline std::vector<FoundChunk> chunksOf(const ByteBlock& file)
{
    const bool is64 = isCAF(file);
    const std::size_t width = is64 ? 8 : 4, header = 4 + width;
    const auto number = [&](std::size_t at) { return loadInteger(&file.at(at), width, orderOf(file)); };
    std::vector<FoundChunk> chunks;
    const std::size_t end = is64 ? file.size() : 8 + number(4);
    std::size_t at = is64 ? 8 : 12;
    while (at + header <= std::min(end, file.size())) {
        const auto start = file.begin() + static_cast<long>(at + header);
        const std::size_t size = number(at + 4);
        if (is64 && size > end - at - header) // audio that the size does not tell yet
            break;
        at += header + size + (is64 ? 0 : size % 2);
        const std::size_t available = std::min(size, static_cast<std::size_t>(file.end() - start));
        chunks.push_back({{start - static_cast<long>(header), start - static_cast<long>(width)},
                          {start, start + static_cast<long>(available)}});
    }
    EXPECT_TRUE(is64 || at == end || (at == end + 1 && at >= file.size()))
        << "ends at " << at << ", the form at " << end;
    EXPECT_LE(end, file.size());
    return chunks;
}

} // namespace qmx::test
