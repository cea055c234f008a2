// SPDX-License-Identifier: MIT
// Any bytes as an audio file: opened, all properties read, read and decoded; then opened for writing and grown. After
// that it must open again, with the written bytes and everything before them.
#include <QMXCoreAudio/AudioToolbox/AudioConverter.h>
#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/Foundation/Files/MemoryFileSystem.h>
#include <QMXCoreAudio/Foundation/Text/Log.h>

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
    (void)AudioFileReadBytes(file, false, start, &count, bytes.data()); // the result is checked below
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
          kAudioFilePropertyEstimatedDuration, kAudioFilePropertyPacketTableInfo, kAudioFilePropertyChannelLayout,
          kAudioFilePropertyPacketToFrame, kAudioFilePropertyFrameToPacket, kAudioFilePropertyPacketToRollDistance}) {
        UInt32 size = 0;
        if (AudioFileGetPropertyInfo(file, property, &size, nullptr) != noErr)
            continue;
        std::vector<UInt8> value(size);
        (void)AudioFileGetProperty(file, property, &size, value.data()); // it may be refused
    }
}

/// The first packets of a compressed file.
struct Packets {
    std::vector<UInt8> data;
    std::vector<AudioStreamPacketDescription> descriptions;

    static OSStatus give(AudioConverterRef, UInt32* count, AudioBufferList* list,
                         AudioStreamPacketDescription** descriptions, void* self)
    {
        auto& packets = *static_cast<Packets*>(self);
        *count = static_cast<UInt32>(packets.descriptions.size());
        list->mBuffers[0].mData = packets.data.data();
        list->mBuffers[0].mDataByteSize = static_cast<UInt32>(packets.data.size());
        *descriptions = packets.descriptions.data();
        if (packets.given)
            *count = 0;
        packets.given = true;
        return noErr;
    }
    bool given = false;
};

void decode(AudioFileID file)
{
    AudioStreamBasicDescription format;
    UInt32 largest = 0, size = sizeof format;
    require(AudioFileGetProperty(file, kAudioFilePropertyDataFormat, &size, &format) == noErr);
    size = sizeof largest;
    require(AudioFileGetProperty(file, kAudioFilePropertyMaximumPacketSize, &size, &largest) == noErr);
    constexpr UInt32 most = 8;
    if (format.mBytesPerPacket > 0 || largest > largestInput)
        return;
    Packets packets{std::vector<UInt8>(std::size_t{most} * largest), std::vector<AudioStreamPacketDescription>(most)};
    UInt32 count = most, bytes = 0;
    if (AudioFileReadPackets(file, false, &bytes, packets.descriptions.data(), 0, &count, packets.data.data()) != noErr)
        return;
    packets.descriptions.resize(count);
    packets.data.resize(bytes);
    AudioStreamBasicDescription client{format.mSampleRate, kAudioFormatLinearPCM, 12, 4, 1, 4, 2, 16, 0};
    AudioConverterRef converter = nullptr;
    if (AudioConverterNew(&format, &client, &converter) != noErr)
        return;
    std::vector<UInt8> cookie(1 << 16);
    size = 0;
    if (AudioFileGetPropertyInfo(file, kAudioFilePropertyMagicCookieData, &size, nullptr) == noErr &&
        size <= cookie.size() &&
        AudioFileGetProperty(file, kAudioFilePropertyMagicCookieData, &size, cookie.data()) == noErr)
        (void)AudioConverterSetProperty(converter, kAudioConverterDecompressionMagicCookie, size, cookie.data());
    std::vector<UInt8> output(1 << 16);
    for (UInt32 frames = 1; frames > 0;) {
        frames = static_cast<UInt32>(output.size() / 4);
        AudioBufferList list{1, {{2, static_cast<UInt32>(output.size()), output.data()}}};
        if (AudioConverterFillComplexBuffer(converter, Packets::give, &packets, &frames, &list, nullptr) != noErr)
            break;
    }
    require(AudioConverterDispose(converter) == noErr);
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
    decode(file);
    (void)AudioFileClose(file); // it was only read
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
    require(byteCount(file) + 8192 > end + count); // an incomplete last frame does not count
    require(readFrom(file, 0, static_cast<UInt32>(before.size())) == before);
    const std::vector<UInt8> after = readFrom(file, static_cast<SInt64>(end), count);
    require(written != noErr || std::equal(after.begin(), after.end(), added.begin()));
    (void)AudioFileClose(file); // likewise
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const UInt8* data, std::size_t size)
{
    if (size > largestInput)
        return 0;
    qmx::setLogHandler([](qmx::LogLevel, const std::string&) {});
    qmx::MemoryFileSystem disk;
    disk.setContents(fuzzed.path, {data, data + size});
    disk.setContents("/._fuzzed", {data, data + size}); // where a Sound Designer file keeps its format
    qmx::FileSystem::setCurrent(&disk);
    read();
    grow();
    qmx::FileSystem::setCurrent(nullptr);
    return 0;
}
