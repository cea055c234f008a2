// SPDX-License-Identifier: MIT
// Files that are made and written while the disk fails, fills up or their writer is killed: what was stored before
// stays, a refused file leaves nothing behind. Forms of chunks have tests of their own.
#include "platform/AudioToolbox/CodedFiles.h"
#include "support/MemoryDisk.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

using namespace qmx::test;

namespace
{

const std::string path = "/d/file", sidecar = "/d/._file";

/// What one file is made of, packet by packet. Packets of samples are blocks of a few hundred frames.
struct Stream {
    AudioFileTypeID type = 0;
    AudioStreamBasicDescription format;
    ByteBlock cookie;
    AudioFilePacketTableInfo table;
    std::vector<ByteBlock> packets;
    std::size_t batch = 1; ///< packets that are written at once
    bool keepsReadable = false;

    bool isLinear() const { return format.mFormatID == kAudioFormatLinearPCM; }
    bool needsTail() const
    {
        return !isLinear() && !keepsReadable &&
               (type == kAudioFileCAFType || type == kAudioFileM4AType || type == kAudioFileMPEG4Type);
    }
};

/// The packets of a file, in order.
std::vector<ByteBlock> packetsIn(AudioFileID file)
{
    std::vector<ByteBlock> packets(property<UInt64>(file, kAudioFilePropertyAudioDataPacketCount));
    SInt64 at = 0;
    for (ByteBlock& packet : packets) {
        packet.resize(property<UInt32>(file, kAudioFilePropertyMaximumPacketSize));
        AudioStreamPacketDescription description;
        UInt32 count = 1, bytes = 0;
        EXPECT_EQ(AudioFileReadPackets(file, false, &bytes, &description, at++, &count, packet.data()), noErr);
        packet.resize(bytes);
    }
    return packets;
}

Stream encoded(AudioFileTypeID type, AudioFormatID coding)
{
    const MemoryDisk disk;
    EXPECT_TRUE(encodeFile(path, type, coded(coding, 1), linear(12, 16, 1), tones(20000, 1)));
    const Opened opened(openFile(path));
    Stream stream{type, formatOf(opened.file), {}, {}, packetsIn(opened.file)};
    stream.table = property<AudioFilePacketTableInfo>(opened.file, kAudioFilePropertyPacketTableInfo);
    UInt32 size = 0;
    if (AudioFileGetPropertyInfo(opened.file, kAudioFilePropertyMagicCookieData, &size, nullptr) == noErr) {
        stream.cookie.resize(size);
        (void)AudioFileGetProperty(opened.file, kAudioFilePropertyMagicCookieData, &size, stream.cookie.data());
    }
    return stream;
}

const std::vector<Stream>& streams()
{
    static const std::vector<Stream> all = [] {
        std::vector<Stream> made{encoded(kAudioFileM4AType, kAudioFormatMPEG4AAC),
                                 encoded(kAudioFileMPEG4Type, kAudioFormatAppleLossless),
                                 encoded(kAudioFileCAFType, kAudioFormatAppleLossless),
                                 encoded(kAudioFileAAC_ADTSType, kAudioFormatMPEG4AAC),
                                 encoded(kAudioFileMP3Type, kAudioFormatMPEGLayer3),
                                 encoded(kAudioFileFLACType, kAudioFormatFLAC)};
        for (const std::size_t mpeg4 : {0U, 1U}) {
            made.push_back(made[mpeg4]);
            made.back().keepsReadable = true;
        }
        made.back().packets.clear();
        made.back().batch = 700;
        for (std::size_t i = 0; i < 3 * made.back().batch; ++i) // more than two fragments hold
            made.back().packets.push_back(pattern(5, i * 5));
        for (const AudioFileTypeID type : {kAudioFileNextType, kAudioFileSoundDesigner2Type}) {
            made.push_back({type, linear(14, 16, 7), {}, {}, {}});
            for (std::size_t i = 0; i < 12; ++i)
                made.back().packets.push_back(pattern(1400, i * 1400));
        }
        return made;
    }();
    return all;
}

ByteBlock joined(std::span<const ByteBlock> packets)
{
    ByteBlock all;
    for (const ByteBlock& packet : packets)
        all.insert(all.end(), packet.begin(), packet.end());
    return all;
}

/// Writes a stream; retries once what fails.
class Recorder
{
public:
    explicit Recorder(const Stream& stream) : stream_(stream)
    {
        const auto made = createFile(path, stream.type, stream.format);
        file_ = made.file;
        note(made.status);
        if (file_ && stream.keepsReadable) {
            constexpr UInt32 keeps = 1;
            note(set(kAudioFilePropertyKeepsReadable, &keeps, sizeof keeps));
        }
        if (file_ && !stream.isLinear()) {
            if (!stream.cookie.empty())
                note(set(kAudioFilePropertyMagicCookieData, stream.cookie.data(), stream.cookie.size()));
            if (status != noErr)
                set(kAudioFilePropertyMagicCookieData, stream.cookie.data(), stream.cookie.size());
            note(set(kAudioFilePropertyPacketTableInfo, &stream.table, sizeof stream.table));
            needsTail =
                stream.needsTail() ||
                (stream.keepsReadable && property<UInt32>(file_, kAudioFilePropertyKeepsReadable) == 0); // in vain
        }
    }

    void record(const MemoryDisk& disk, std::size_t changeLimit = SIZE_MAX)
    {
        while (stored < stream_.packets.size()) {
            OSStatus written = write();
            note(written);
            if (written != noErr && (written = write()) != noErr)
                break;
            if (disk.changesMade() < changeLimit)
                storedBefore = stored;
        }
        closed = AudioFileClose(std::exchange(file_, nullptr));
    }

    bool isMade() const { return file_ != nullptr; }

    bool needsTail = false;
    OSStatus status = noErr, closed = noErr; ///< of the first call that failed, and of closing
    std::size_t stored = 0,
                storedBefore = 0; ///< packets that were accepted, in all and before the disk changed that many times

private:
    void note(OSStatus result) { status = status == noErr ? result : status; }
    OSStatus set(AudioFilePropertyID id, const void* value, std::size_t size)
    {
        return stream_.type == kAudioFileAAC_ADTSType
                   ? noErr
                   : AudioFileSetProperty(file_, id, static_cast<UInt32>(size), value);
    }
    OSStatus write()
    {
        const auto rest = std::span(stream_.packets).subspan(stored);
        const auto next = rest.first(std::min(stream_.batch, rest.size()));
        const ByteBlock data = joined(next);
        if (stream_.isLinear()) {
            UInt32 done = 0;
            const OSStatus result = writeAudio(file_, static_cast<SInt64>(stored * data.size()), data, &done);
            stored += result == noErr ? 1 : 0;
            return result;
        }
        std::vector<AudioStreamPacketDescription> descriptions;
        for (SInt64 at = 0; const ByteBlock& packet : next) {
            descriptions.push_back({at, 0, static_cast<UInt32>(packet.size())});
            at += descriptions.back().mDataByteSize;
        }
        auto count = static_cast<UInt32>(next.size());
        const OSStatus result =
            AudioFileWritePackets(file_, false, static_cast<UInt32>(data.size()), descriptions.data(),
                                  static_cast<SInt64>(stored), &count, data.data());
        stored += count;
        return result;
    }

    const Stream& stream_;
    AudioFileID file_ = nullptr;
};

/// How many packets the file returns, all equal to the stream's. Empty if it does not open.
std::optional<std::size_t> packetsBack(const Stream& stream, SInt8 permissions = fsRdPerm)
{
    const auto opened = openFile(path, permissions);
    if (opened.status != noErr)
        return std::nullopt;
    const ByteBlock all = joined(stream.packets);
    const ByteBlock found = stream.isLinear() ? audioOf(opened.file) : joined(packetsIn(opened.file));
    EXPECT_EQ(AudioFileClose(opened.file), noErr);
    EXPECT_TRUE(found.size() <= all.size() && std::equal(found.begin(), found.end(), all.begin()));
    std::size_t count = 0, bytes = 0;
    while (count < stream.packets.size() && bytes + stream.packets[count].size() <= found.size())
        bytes += stream.packets[count++].size();
    EXPECT_TRUE(stream.isLinear() || bytes == found.size()) << "a part of a packet";
    return count;
}

bool isNothingLeft(const MemoryDisk& disk)
{
    return disk.contents(path).empty() && disk.contents(sidecar).empty() && openFile(path).status == fnfErr &&
           disk.contents(sidecar + ".new").empty();
}

/// Changes of the disk that the whole stream takes.
std::size_t changesFor(const Stream& stream)
{
    const MemoryDisk disk;
    Recorder(stream).record(disk);
    EXPECT_EQ(packetsBack(stream), stream.packets.size());
    return disk.changesMade();
}

} // namespace

TEST(FailingDisk, AChangeThatFailsIsToldAndWhatIsWrittenAgainIsThere)
{
    for (const Stream& stream : streams())
        for (std::size_t change = 1, all = changesFor(stream); change <= all; ++change)
            for (const auto& [error, keep] : {std::pair{ENOSPC, 0U}, {ENOSPC, 3U}, {EIO, 0U}, {EIO, 3U}}) {
                SCOPED_TRACE(testing::Message() << qmx::fourCharString(stream.type) << ", change " << change << ", "
                                                << strerror(error) << " after " << keep << " bytes");
                MemoryDisk disk;
                disk.failChange(change, error, keep);
                Recorder recorder(stream);
                EXPECT_TRUE(recorder.isMade() || isNothingLeft(disk));
                const OSStatus expected = error == EIO ? ioErr : dskFulErr;
                if (!recorder.isMade()) {
                    EXPECT_EQ(recorder.status, expected);
                    continue;
                }
                recorder.record(disk);
                EXPECT_EQ(recorder.stored, stream.packets.size());
                EXPECT_EQ(recorder.status == noErr ? recorder.closed : recorder.status, expected);
                disk.clearFaults();
                const auto back = packetsBack(stream);
                if (recorder.closed == noErr || !recorder.needsTail) {
                    EXPECT_EQ(back, stream.packets.size());
                }
            }
}

TEST(FailingDisk, AFullDiskKeepsWhatWasStored)
{
    for (const Stream& stream : streams()) {
        const std::size_t all = joined(stream.packets).size();
        for (std::size_t capacity = 0; capacity < all; capacity += 97) {
            SCOPED_TRACE(testing::Message() << qmx::fourCharString(stream.type) << " on " << capacity << " bytes");
            MemoryDisk disk;
            disk.setCapacity(capacity);
            Recorder recorder(stream);
            if (!recorder.isMade()) {
                EXPECT_EQ(recorder.status, dskFulErr);
                EXPECT_TRUE(isNothingLeft(disk));
                continue;
            }
            recorder.record(disk);
            EXPECT_EQ(recorder.status, dskFulErr);
            disk.clearFaults();
            // the description of the packets replaces the last ones
            constexpr std::size_t largestTail = 1300;
            const auto back = packetsBack(stream);
            if (!recorder.needsTail) {
                EXPECT_EQ(back.value_or(0), recorder.stored);
            } else if (capacity > 2 * largestTail + stream.batch * stream.packets[1].size()) {
                const auto given = back.value_or(0);
                EXPECT_GT(given, 0U);
                EXPECT_LE(joined({stream.packets.begin() + static_cast<long>(given + 1),
                                  stream.packets.begin() + static_cast<long>(std::max(given + 1, recorder.stored))})
                              .size(),
                          largestTail);
            }
        }
    }
}

TEST(FailingDisk, AKilledWriterLosesAtMostTheCurrentPacketOfAStream)
{
    for (const Stream& stream : streams())
        for (std::size_t change = 1, all = changesFor(stream); change <= all; ++change)
            for (const std::size_t keep : {0U, 3U}) {
                if (keep > 0 && stream.keepsReadable)
                    continue; // a page of a file is stored whole or not at all
                SCOPED_TRACE(testing::Message() << qmx::fourCharString(stream.type) << ", change " << change);
                MemoryDisk disk;
                disk.killAtChange(change, keep);
                Recorder recorder(stream);
                recorder.record(disk, change);
                disk.clearFaults();
                const auto back = packetsBack(stream);
                if (stream.needsTail() || recorder.storedBefore == 0)
                    continue;
                // headers of samples follow when some were added; opening the file for writing takes in the rest
                EXPECT_GE((stream.isLinear() ? packetsBack(stream, fsRdWrPerm) : back).value_or(0),
                          recorder.storedBefore);
            }
}

TEST(FailingDisk, AStreamThatIsCutGivesTheWholePacketsBeforeTheCut)
{
    for (const Stream& stream : streams()) {
        if (stream.needsTail() || stream.isLinear())
            continue;
        const std::size_t all = changesFor(stream);
        MemoryDisk disk;
        disk.killAtChange(all); // before the close has made it an ordinary file
        Recorder(stream).record(disk);
        const ByteBlock killed = disk.contents(path);
        const std::size_t step = 97, largest = std::ranges::max_element(stream.packets, {}, &ByteBlock::size)->size();
        std::size_t last = packetsBack(stream).value_or(0);
        EXPECT_GE(last + 1, stream.packets.size());
        for (std::size_t size = killed.size() - stream.packets.back().size(); last > 1; size -= step) {
            SCOPED_TRACE(testing::Message()
                         << qmx::fourCharString(stream.type) << ", " << size << " of " << killed.size() << " bytes");
            disk.setContents(path, {killed.begin(), killed.begin() + static_cast<long>(size)});
            const auto back = packetsBack(stream);
            ASSERT_TRUE(back && *back <= last);
            EXPECT_LE(joined(std::span(stream.packets).subspan(*back, last - *back)).size(), step + 2 * largest);
            last = *back;
        }
    }
}

TEST(Fork, ContentsOutrankOneThatAnotherFileLeftAndANewFileRemovesIt)
{
    for (const Stream& stream : streams()) {
        SCOPED_TRACE(qmx::fourCharString(stream.type));
        MemoryDisk disk;
        makeFile(path, kAudioFileSoundDesigner2Type, linear(14, 24, 2, 48000), {});
        const ByteBlock fork = disk.contents(sidecar);
        ASSERT_EQ(disk.remove(path), 0);
        Recorder(stream).record(disk);
        if (stream.type == kAudioFileSoundDesigner2Type) {
            EXPECT_NE(disk.contents(sidecar), fork);
        } else {
            EXPECT_TRUE(disk.contents(sidecar).empty());
            disk.setContents(sidecar, fork);
        }
        EXPECT_EQ(packetsBack(stream), stream.packets.size());
        EXPECT_EQ(propertyAt<UInt32>(path, kAudioFilePropertyFileFormat), stream.type);
        const auto format = propertyAt<AudioStreamBasicDescription>(path, kAudioFilePropertyDataFormat);
        EXPECT_EQ(std::memcmp(&format, &stream.format, sizeof format), 0);
    }
}
