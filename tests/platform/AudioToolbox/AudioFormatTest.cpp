// SPDX-License-Identifier: MIT
#include "AudioToolbox/AudioFormat.h"

#include <gtest/gtest.h>

namespace
{

constexpr AudioFormatID unknown = qmx::fourCharCode("?!?!");

AudioStreamBasicDescription completed(AudioStreamBasicDescription record)
{
    UInt32 size = sizeof record;
    const OSStatus status = AudioFormatGetProperty(kAudioFormatProperty_FormatInfo, 0, nullptr, &size, &record);
    EXPECT_EQ(record.mFormatID == unknown ? kAudioFormatUnknownFormatError : noErr, status);
    return record;
}

AudioStreamBasicDescription stereo(AudioFormatID id)
{
    return {44100, id, 0, 0, 0, 0, 2, 0, 0};
}

} // namespace

TEST(AudioFormat, RecordsAreCompletedByWhatTheirCodingKnows)
{
    EXPECT_EQ(1024u, completed(stereo(kAudioFormatMPEG4AAC)).mFramesPerPacket);
    EXPECT_EQ(0u, completed(stereo(kAudioFormatMPEG4AAC)).mBytesPerPacket);
    EXPECT_EQ(68u, completed(stereo(kAudioFormatAppleIMA4)).mBytesPerPacket);
    EXPECT_EQ(2u, completed(stereo(kAudioFormatULaw)).mBytesPerFrame);
    EXPECT_EQ(0u, completed(stereo(unknown)).mFramesPerPacket);

    auto linear = stereo(kAudioFormatLinearPCM);
    linear.mFormatFlags = kAudioFormatFlagIsSignedInteger;
    linear.mBitsPerChannel = 24;
    EXPECT_EQ(6u, completed(linear).mBytesPerPacket);
    linear.mBytesPerFrame = 8; // in 4 bytes each
    EXPECT_EQ(8u, completed(linear).mBytesPerPacket);
    EXPECT_EQ(0u, completed(stereo(kAudioFormatLinearPCM)).mBytesPerFrame); // without bits nothing can be computed
}

TEST(AudioFormat, QuestionsAboutAFormatWantItsRecordAndRoomForTheAnswer)
{
    const auto lossless = stereo(kAudioFormatAppleLossless);
    UInt32 answer = 0, size = sizeof answer;
    const auto ask = [&](AudioFormatPropertyID property, UInt32 specifierSize) {
        return AudioFormatGetProperty(property, specifierSize, &lossless, &size, &answer);
    };
    EXPECT_EQ(noErr, ask(kAudioFormatProperty_FormatIsVBR, sizeof lossless));
    EXPECT_EQ(1u, answer);
    EXPECT_EQ(kAudioFormatBadSpecifierSizeError, ask(kAudioFormatProperty_FormatIsVBR, 39));
    size = 3;
    EXPECT_EQ(kAudioFormatBadPropertySizeError, ask(kAudioFormatProperty_FormatIsVBR, sizeof lossless));
    EXPECT_EQ(kAudioFormatUnsupportedPropertyError, ask(kAudioFormatProperty_PanningMatrix, sizeof lossless));
}
