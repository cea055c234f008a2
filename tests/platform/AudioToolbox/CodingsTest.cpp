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
