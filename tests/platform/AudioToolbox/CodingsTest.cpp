// SPDX-License-Identifier: MIT
// Compressed files from samples to samples: exact lengths, exact samples where the coding keeps them, and any place found again.
#include "platform/AudioToolbox/CodedFiles.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>

using namespace qmx::test;

namespace
{

struct Case {
    const char* name;
    AudioFileTypeID type;
    AudioFormatID coding;
    bool isLossless;
};

const Case cases[] = {
    {"a.m4a", kAudioFileM4AType, kAudioFormatMPEG4AAC, false},
    {"a.mp4", kAudioFileMPEG4Type, kAudioFormatMPEG4AAC, false},
    {"alac.m4a", kAudioFileM4AType, kAudioFormatAppleLossless, true},
    {"aac.caf", kAudioFileCAFType, kAudioFormatMPEG4AAC, false},
    {"alac.caf", kAudioFileCAFType, kAudioFormatAppleLossless, true},
    {"a.flac", kAudioFileFLACType, kAudioFormatFLAC, true},
    {"a.mp3", kAudioFileMP3Type, kAudioFormatMPEGLayer3, false},
};

/// The loudest difference of 16-bit samples over the loudest sample.
double worstDifference(const ByteBlock& a, const ByteBlock& b)
{
    double worst = 0;
    for (std::size_t i = 0; i + 1 < std::min(a.size(), b.size()); i += 2) {
        SInt16 left = 0, right = 0;
        std::memcpy(&left, &a[i], 2);
        std::memcpy(&right, &b[i], 2);
        worst = std::max(worst, std::abs(left - right) / 32768.0);
    }
    return worst;
}

} // namespace

TEST(Codings, EveryLengthAndChannelCountComesBackExactly)
{
    const TemporaryFolder folder;
    for (const Case& c : cases)
        for (const UInt32 channels : {1U, 2U, 3U, 6U, 8U})
            for (const std::size_t frames : {std::size_t{1}, std::size_t{4097}, std::size_t{44100}}) {
                if (c.coding == kAudioFormatMPEGLayer3 && channels > 2)
                    continue;
                SCOPED_TRACE(testing::Message() << c.name << " of " << frames << " frames, channels: " << channels);
                const auto pcm = linear(12, 16, channels);
                const ByteBlock original = tones(frames, channels);
                const std::string path = folder.path(c.name);
                std::filesystem::remove(path);
                ASSERT_TRUE(encodeFile(path, c.type, coded(c.coding, channels), pcm, original));
                FrameReader reader(path, pcm);
                EXPECT_EQ(reader.info().mNumberValidFrames, static_cast<SInt64>(frames));
                const ByteBlock decoded = reader.from(0);
                ASSERT_EQ(decoded.size(), original.size());
                const double allowed = c.isLossless   ? 0
                                       : channels < 3 ? 0.1
                                                      : 1; // a channel for low tones keeps no others
                EXPECT_LE(worstDifference(decoded, original), allowed);
                if (frames < 44100)
                    continue;
                for (const SInt64 start : {1, 1023, 5000, 44099}) {
                    const auto whole = ByteBlock(decoded.begin() + start * pcm.mBytesPerFrame, decoded.end());
                    const ByteBlock part = reader.from(start);
                    ASSERT_EQ(part.size(), whole.size());
                    EXPECT_LT(worstDifference(part, whole), 0.0001) << "from frame " << start;
                }
            }
}

TEST(Codings, ToolsReadOurFilesAndWeReadTheirsWithTheExactLength)
{
    const TemporaryFolder folder;
    const auto pcm = linear(12, 16, 2);
    const ByteBlock original = tones(44100, 2);
    writeFile(folder.path("in.raw"), original);
    const auto run = [&](const std::string& command) {
        const std::string line = "cd " + folder.path("") + " && " + command + " >log 2>&1 </dev/null";
        const int status = std::system(line.c_str());
        const ByteBlock log = contentsOf(folder.path("log"));
        EXPECT_EQ(status, 0) << command << "\n" << std::string(log.begin(), log.end());
        return std::string(log.begin(), log.end());
    };
    const std::string raw = "-f s16le -ar 44100 -ac 2 ";
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(folder.path(c.name));
        ASSERT_TRUE(encodeFile(folder.path(c.name), c.type, coded(c.coding, 2), pcm, original));
        // the tool trims the end where the format's own rules make it: not in MPEG-4, of which it still tells the length
        run(std::string("ffmpeg -v error -y -i ") + c.name + " " + raw + "out.raw");
        const ByteBlock decoded = contentsOf(folder.path("out.raw"));
        const bool skipsPriming = c.type != kAudioFileCAFType || c.isLossless;
        EXPECT_LE(worstDifference(decoded, original), c.isLossless ? 0 : skipsPriming ? 0.1 : 2);
        EXPECT_GE(decoded.size(), original.size());
        if (c.type == kAudioFileM4AType || c.type == kAudioFileMPEG4Type) {
            EXPECT_EQ(run(std::string("ffprobe -v error -show_entries stream=duration_ts -of csv=p=0 ") + c.name),
                      "44100\n");
        }
    }
    const struct {
        const char* arguments;
        bool isLossless;
        SInt64 frames; // 0: the container has no place for the length, or the tool leaves it out
    } theirs[] = {{"-c:a aac t.m4a", false, 44100},  {"-c:a alac t.m4a", true, 44100},
                  {"-c:a flac t.flac", true, 44100}, {"-c:a libmp3lame t.mp3", false, 44100},
                  {"-c:a alac t.caf", true, 0},      {"-c:a aac -f adts t.aac", false, 0}};
    for (const auto& row : theirs) {
        SCOPED_TRACE(row.arguments);
        run("ffmpeg -v error -y " + raw + "-i in.raw " + row.arguments);
        const std::string arguments = row.arguments;
        FrameReader reader(folder.path(arguments.substr(arguments.rfind(' ') + 1)), pcm);
        const ByteBlock decoded = reader.from(0);
        if (row.frames > 0) {
            EXPECT_EQ(reader.info().mNumberValidFrames, row.frames);
            EXPECT_EQ(decoded.size(), original.size());
            EXPECT_LE(worstDifference(decoded, original), row.isLossless ? 0 : 0.4);
        } else {
            EXPECT_GE(decoded.size(), original.size());
        }
    }
}
