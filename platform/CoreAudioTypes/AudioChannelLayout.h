// SPDX-License-Identifier: MIT
// Where the channels of a stream belong: the layout record, its tags, labels, flags and bitmap bits.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

using AudioChannelLabel = UInt32;
using AudioChannelLayoutTag = UInt32;

/// One channel of a layout that is not named by a tag or a bitmap.
struct AudioChannelDescription {
    AudioChannelLabel mChannelLabel = 0;
    UInt32 mChannelFlags = 0;
    Float32 mCoordinates[3] = {}; ///< the flags say which coordinates, and whether in meters
};

/// A layout. One with more than one description is allocated with room for the further entries:
/// offsetof(AudioChannelLayout, mChannelDescriptions) + n * sizeof(AudioChannelDescription) bytes.
struct AudioChannelLayout {
    AudioChannelLayoutTag mChannelLayoutTag = 0;
    UInt32 mChannelBitmap = 0; ///< when the tag says so
    UInt32 mNumberChannelDescriptions = 0;
    AudioChannelDescription mChannelDescriptions[1];
};

inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_UseChannelDescriptions = 0x00000000;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_UseChannelBitmap = 0x00010000;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Mono = 0x00640001;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Stereo = 0x00650002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_StereoHeadphones = 0x00660002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MatrixStereo = 0x00670002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MidSide = 0x00680002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_XY = 0x00690002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Binaural = 0x006A0002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Ambisonic_B_Format = 0x006B0004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Quadraphonic = 0x006C0004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Pentagonal = 0x006D0005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Hexagonal = 0x006E0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Octagonal = 0x006F0008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Cube = 0x00700008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_1_0 = 0x00640001;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_2_0 = 0x00650002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_3_0_A = 0x00710003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_3_0_B = 0x00720003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_4_0_A = 0x00730004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_4_0_B = 0x00740004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_A = 0x00750005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_B = 0x00760005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_C = 0x00770005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_D = 0x00780005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_A = 0x00790006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_B = 0x007A0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_C = 0x007B0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_D = 0x007C0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_6_1_A = 0x007D0007;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_7_1_A = 0x007E0008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_7_1_B = 0x007F0008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_7_1_C = 0x00800008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Emagic_Default_7_1 = 0x00810008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_SMPTE_DTV = 0x00820008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_1_0 = 0x00640001;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_2_0 = 0x00650002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_2_1 = 0x00830003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_2_2 = 0x00840004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_3_0 = 0x00710003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_3_1 = 0x00730004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_3_2 = 0x00750005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_3_2_1 = 0x00790006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_3_4_1 = 0x00800008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_0 = 0x00640001;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_1 = 0x00650002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_2 = 0x00830003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_3 = 0x00840004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_4 = 0x00850003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_5 = 0x00860004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_6 = 0x00870005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_7 = 0x00710003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_8 = 0x00730004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_9 = 0x00750005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_10 = 0x00880004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_11 = 0x00890005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_12 = 0x00790006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_13 = 0x00730004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_14 = 0x00750005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_15 = 0x00880004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_16 = 0x00890005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_17 = 0x00790006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_18 = 0x008A0005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_19 = 0x00760005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DVD_20 = 0x007A0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_4 = 0x006C0004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_5 = 0x006D0005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_6 = 0x006E0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_8 = 0x006F0008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_5_0 = 0x00760005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_6_0 = 0x008B0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_7_0 = 0x008C0007;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_5_1 = 0x00790006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_6_1 = 0x007D0007;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_7_1 = 0x00800008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_Quadraphonic = 0x006C0004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_4_0 = 0x00740004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_5_0 = 0x00780005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_5_1 = 0x007C0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_6_0 = 0x008D0006;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_6_1 = 0x008E0007;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_7_0 = 0x008F0007;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_7_1 = 0x007F0008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_Octagonal = 0x00900008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_TMH_10_2_std = 0x00910010;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_TMH_10_2_full = 0x00920015;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DiscreteInOrder = 0x00930000;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_7_1_Front = 0x007E0008;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AAC_3_0 = 0x00720003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AudioUnit_7_0_Front = 0x00940007;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AC3_1_0_1 = 0x00950002;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AC3_3_0 = 0x00960003;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AC3_3_1 = 0x00970004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AC3_3_0_1 = 0x00980004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AC3_2_1_1 = 0x00990004;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_AC3_3_1_1 = 0x009A0005;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Unknown = 0xFFFF0000;

/// How many channels a layout tag stands for: its low half.
constexpr UInt32 AudioChannelLayoutTag_GetNumberOfChannels(AudioChannelLayoutTag tag)
{
    return tag & 0xFFFF;
}

inline constexpr AudioChannelLabel kAudioChannelLabel_Unknown = 0xFFFFFFFF;
inline constexpr AudioChannelLabel kAudioChannelLabel_Unused = 0;
inline constexpr AudioChannelLabel kAudioChannelLabel_UseCoordinates = 100;
inline constexpr AudioChannelLabel kAudioChannelLabel_Left = 1;
inline constexpr AudioChannelLabel kAudioChannelLabel_Right = 2;
inline constexpr AudioChannelLabel kAudioChannelLabel_Center = 3;
inline constexpr AudioChannelLabel kAudioChannelLabel_LFEScreen = 4;
inline constexpr AudioChannelLabel kAudioChannelLabel_LeftSurround = 5;
inline constexpr AudioChannelLabel kAudioChannelLabel_RightSurround = 6;
inline constexpr AudioChannelLabel kAudioChannelLabel_LeftCenter = 7;
inline constexpr AudioChannelLabel kAudioChannelLabel_RightCenter = 8;
inline constexpr AudioChannelLabel kAudioChannelLabel_CenterSurround = 9;
inline constexpr AudioChannelLabel kAudioChannelLabel_LeftSurroundDirect = 10;
inline constexpr AudioChannelLabel kAudioChannelLabel_RightSurroundDirect = 11;
inline constexpr AudioChannelLabel kAudioChannelLabel_TopCenterSurround = 12;
inline constexpr AudioChannelLabel kAudioChannelLabel_VerticalHeightLeft = 13;
inline constexpr AudioChannelLabel kAudioChannelLabel_VerticalHeightCenter = 14;
inline constexpr AudioChannelLabel kAudioChannelLabel_VerticalHeightRight = 15;
inline constexpr AudioChannelLabel kAudioChannelLabel_TopBackLeft = 16;
inline constexpr AudioChannelLabel kAudioChannelLabel_TopBackCenter = 17;
inline constexpr AudioChannelLabel kAudioChannelLabel_TopBackRight = 18;
inline constexpr AudioChannelLabel kAudioChannelLabel_RearSurroundLeft = 33;
inline constexpr AudioChannelLabel kAudioChannelLabel_RearSurroundRight = 34;
inline constexpr AudioChannelLabel kAudioChannelLabel_LeftWide = 35;
inline constexpr AudioChannelLabel kAudioChannelLabel_RightWide = 36;
inline constexpr AudioChannelLabel kAudioChannelLabel_LFE2 = 37;
inline constexpr AudioChannelLabel kAudioChannelLabel_LeftTotal = 38;
inline constexpr AudioChannelLabel kAudioChannelLabel_RightTotal = 39;
inline constexpr AudioChannelLabel kAudioChannelLabel_HearingImpaired = 40;
inline constexpr AudioChannelLabel kAudioChannelLabel_Narration = 41;
inline constexpr AudioChannelLabel kAudioChannelLabel_Mono = 42;
inline constexpr AudioChannelLabel kAudioChannelLabel_DialogCentricMix = 43;
inline constexpr AudioChannelLabel kAudioChannelLabel_CenterSurroundDirect = 44;
inline constexpr AudioChannelLabel kAudioChannelLabel_Ambisonic_W = 200;
inline constexpr AudioChannelLabel kAudioChannelLabel_Ambisonic_X = 201;
inline constexpr AudioChannelLabel kAudioChannelLabel_Ambisonic_Y = 202;
inline constexpr AudioChannelLabel kAudioChannelLabel_Ambisonic_Z = 203;
inline constexpr AudioChannelLabel kAudioChannelLabel_MS_Mid = 204;
inline constexpr AudioChannelLabel kAudioChannelLabel_MS_Side = 205;
inline constexpr AudioChannelLabel kAudioChannelLabel_XY_X = 206;
inline constexpr AudioChannelLabel kAudioChannelLabel_XY_Y = 207;
inline constexpr AudioChannelLabel kAudioChannelLabel_HeadphonesLeft = 301;
inline constexpr AudioChannelLabel kAudioChannelLabel_HeadphonesRight = 302;
inline constexpr AudioChannelLabel kAudioChannelLabel_ClickTrack = 304;
inline constexpr AudioChannelLabel kAudioChannelLabel_ForeignLanguage = 305;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete = 400;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_0 = 0x00010000;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_1 = 0x00010001;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_2 = 0x00010002;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_3 = 0x00010003;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_4 = 0x00010004;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_5 = 0x00010005;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_6 = 0x00010006;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_7 = 0x00010007;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_8 = 0x00010008;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_9 = 0x00010009;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_10 = 0x0001000A;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_11 = 0x0001000B;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_12 = 0x0001000C;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_13 = 0x0001000D;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_14 = 0x0001000E;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_15 = 0x0001000F;
inline constexpr AudioChannelLabel kAudioChannelLabel_Discrete_65535 = 0x0001FFFF;
inline constexpr AudioChannelLabel kAudioChannelLabel_Haptic = 45;

inline constexpr UInt32 kAudioChannelFlags_AllOff = 0;
inline constexpr UInt32 kAudioChannelFlags_RectangularCoordinates = 0x1;
inline constexpr UInt32 kAudioChannelFlags_SphericalCoordinates = 0x2;
inline constexpr UInt32 kAudioChannelFlags_Meters = 0x4;

inline constexpr UInt32 kAudioChannelCoordinates_LeftRight = 0;
inline constexpr UInt32 kAudioChannelCoordinates_BackFront = 1;
inline constexpr UInt32 kAudioChannelCoordinates_DownUp = 2;
inline constexpr UInt32 kAudioChannelCoordinates_Azimuth = 0;
inline constexpr UInt32 kAudioChannelCoordinates_Elevation = 1;
inline constexpr UInt32 kAudioChannelCoordinates_Distance = 2;

inline constexpr UInt32 kAudioChannelBit_Left = 0x1;
inline constexpr UInt32 kAudioChannelBit_Right = 0x2;
inline constexpr UInt32 kAudioChannelBit_Center = 0x4;
inline constexpr UInt32 kAudioChannelBit_LFEScreen = 0x8;
inline constexpr UInt32 kAudioChannelBit_LeftSurround = 0x10;
inline constexpr UInt32 kAudioChannelBit_RightSurround = 0x20;
inline constexpr UInt32 kAudioChannelBit_LeftCenter = 0x40;
inline constexpr UInt32 kAudioChannelBit_RightCenter = 0x80;
inline constexpr UInt32 kAudioChannelBit_CenterSurround = 0x100;
inline constexpr UInt32 kAudioChannelBit_LeftSurroundDirect = 0x200;
inline constexpr UInt32 kAudioChannelBit_RightSurroundDirect = 0x400;
inline constexpr UInt32 kAudioChannelBit_TopCenterSurround = 0x800;
inline constexpr UInt32 kAudioChannelBit_VerticalHeightLeft = 0x1000;
inline constexpr UInt32 kAudioChannelBit_VerticalHeightCenter = 0x2000;
inline constexpr UInt32 kAudioChannelBit_VerticalHeightRight = 0x4000;
inline constexpr UInt32 kAudioChannelBit_TopBackLeft = 0x8000;
inline constexpr UInt32 kAudioChannelBit_TopBackCenter = 0x10000;
inline constexpr UInt32 kAudioChannelBit_TopBackRight = 0x20000;
