// SPDX-License-Identifier: MIT
// Which loudspeaker each channel of a stream is for.
#pragma once

#include "CoreAudioTypes/FourCharCode.h"
#include "CoreAudioTypes/MacTypes.h"

using AudioChannelLabel = UInt32;
using AudioChannelLayoutTag = UInt32;

struct AudioChannelDescription {
    AudioChannelLabel mChannelLabel = 0;
    UInt32 mChannelFlags = 0;
    Float32 mCoordinates[3] = {};
};

/// A layout by its tag; the bitmap and the descriptions count only where the tag says so. Layouts of more than one description
/// are allocated with room for the further ones; one that is told by its tag is this record without any (12 bytes are enough).
struct AudioChannelLayout {
    AudioChannelLayoutTag mChannelLayoutTag = 0;
    UInt32 mChannelBitmap = 0;
    UInt32 mNumberChannelDescriptions = 0;
    AudioChannelDescription mChannelDescriptions[1];
};

inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_UseChannelDescriptions = 0;
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_UseChannelBitmap = 1 << 16;
// the low half of a tag is the number of channels
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Mono = 0x00640001;            ///< C
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Stereo = 0x00650002;          ///< L R
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_Quadraphonic = 0x006C0004;    ///< L R Ls Rs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_3_0_A = 0x00710003;      ///< L R C
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_4_0_A = 0x00730004;      ///< L R C Cs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_A = 0x00750005;      ///< L R C Ls Rs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_A = 0x00790006;      ///< L R C LFE Ls Rs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_6_1_A = 0x007D0007;      ///< L R C LFE Ls Rs Cs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_7_1_A = 0x007E0008;      ///< L R C LFE Ls Rs Lc Rc
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_7_1_C = 0x00800008;      ///< L R C LFE Ls Rs Rls Rrs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_DiscreteInOrder = 0x00930000; ///< with the channel count

inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_3_0_B = 0x00720003; ///< C L R
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_4_0_B = 0x00740004; ///< C L R Cs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_B = 0x00760005; ///< L R Ls Rs C
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_C = 0x00770005; ///< L C R Ls Rs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_0_D = 0x00780005; ///< C L R Ls Rs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_B = 0x007A0006; ///< L R Ls Rs C LFE
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_C = 0x007B0006; ///< L C R Ls Rs LFE
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_5_1_D = 0x007C0006; ///< C L R Ls Rs LFE
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_MPEG_7_1_B = 0x007F0008; ///< C Lc Rc L R Ls Rs LFE
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_2_1 = 0x00830003;    ///< L R Cs
inline constexpr AudioChannelLayoutTag kAudioChannelLayoutTag_ITU_2_2 = 0x00840004;    ///< L R Ls Rs

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
inline constexpr AudioChannelLabel kAudioChannelLabel_RearSurroundLeft = 33;
inline constexpr AudioChannelLabel kAudioChannelLabel_RearSurroundRight = 34;
inline constexpr AudioChannelLabel kAudioChannelLabel_LFE2 = 37;
inline constexpr AudioChannelLabel kAudioChannelLabel_Mono = 42;

inline constexpr UInt32 AudioChannelLayoutTag_GetNumberOfChannels(AudioChannelLayoutTag tag)
{
    return tag & 0xFFFF;
}
