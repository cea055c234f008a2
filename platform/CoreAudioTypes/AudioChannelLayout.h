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

inline constexpr UInt32 AudioChannelLayoutTag_GetNumberOfChannels(AudioChannelLayoutTag tag)
{
    return tag & 0xFFFF;
}
