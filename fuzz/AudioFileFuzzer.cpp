// SPDX-License-Identifier: MIT
// Any bytes as an audio file: opened, asked for everything, read; then opened for writing and grown, after which it must open
// again with the bytes that were written and with everything that was before them.
#include "AudioToolbox/AudioFile.h"
#include "Foundation/Log.h"
#include "Foundation/MemoryFileSystem.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace
{

constexpr std::size_t largestInput = std::size_t{1} << 20;
constexpr UInt32 largestRead = 1 << 16;
const FSRef fuzzed{"/fuzzed"};

void require(bool holds)
{
    if (!holds)
        std::abort();
}

std::vector<UInt8> readFrom(AudioFileID file, SInt64 start, UInt32 count)
{
    std::vector<UInt8> bytes(count);
    AudioFileReadBytes(file, false, start, &count, bytes.data());
    bytes.resize(count);
    return bytes;
}

UInt64 byteCount(AudioFileID file)
{
    UInt64 bytes = 0;
    UInt32 size = sizeof bytes;
    require(AudioFileGetProperty(file, kAudioFilePropertyAudioDataByteCount, &size, &bytes) == noErr);
    return bytes;
}

void askEverything(AudioFileID file)
{
    for (const AudioFilePropertyID property :
         {kAudioFilePropertyFileFormat, kAudioFilePropertyDataFormat, kAudioFilePropertyIsOptimized,
          kAudioFilePropertyMagicCookieData, kAudioFilePropertyAudioDataPacketCount,
          kAudioFilePropertyMaximumPacketSize, kAudioFilePropertyDataOffset, kAudioFilePropertyChunkIDs,
          kAudioFilePropertyEstimatedDuration}) {
        UInt32 size = 0;
        if (AudioFileGetPropertyInfo(file, property, &size, nullptr) != noErr)
            continue;
        std::vector<UInt8> value(size);
        AudioFileGetProperty(file, property, &size, value.data());
    }
}

void read()
{
    AudioFileID file = nullptr;
    if (AudioFileOpen(&fuzzed, fsRdPerm, 0, &file) != noErr)
        return;
    askEverything(file);
    const UInt64 bytes = byteCount(file);
    readFrom(file, 0, largestRead);
    readFrom(file, static_cast<SInt64>(bytes - std::min<UInt64>(bytes, 100)), 200);
    AudioFileClose(file);
}

void grow()
{
    AudioFileID file = nullptr;
    if (AudioFileOpen(&fuzzed, fsRdWrPerm, 0, &file) != noErr)
        return;
    const UInt64 end = byteCount(file);
    const std::vector<UInt8> before = readFrom(file, 0, largestRead);
    std::vector<UInt8> added(8192);
    for (std::size_t i = 0; i < added.size(); ++i)
        added[i] = static_cast<UInt8>(i * 7);
    auto count = static_cast<UInt32>(added.size());
    const OSStatus written = AudioFileWriteBytes(file, false, static_cast<SInt64>(end), &count, added.data());
    require(AudioFileClose(file) == noErr);
    require(AudioFileOpen(&fuzzed, fsRdPerm, 0, &file) == noErr);
    require(byteCount(file) + 8192 > end + count); // a last frame in part does not count
    require(readFrom(file, 0, static_cast<UInt32>(before.size())) == before);
    const std::vector<UInt8> after = readFrom(file, static_cast<SInt64>(end), count);
    require(written != noErr || std::equal(after.begin(), after.end(), added.begin()));
    AudioFileClose(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const UInt8* data, std::size_t size)
{
    if (size > largestInput)
        return 0;
    qmx::setLogHandler([](qmx::LogLevel, const std::string&) {});
    qmx::MemoryFileSystem disk;
    disk.setContents(fuzzed.path, {data, data + size});
    qmx::FileSystem::setCurrent(&disk);
    read();
    grow();
    qmx::FileSystem::setCurrent(nullptr);
    return 0;
}
