// SPDX-License-Identifier: MIT
// The plain records that describe audio data, and the codes of the codings they name.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/FourCharCode.h>
#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

using AudioFormatID = UInt32;
using AudioFormatFlags = UInt32;

/// The layout of a stream of audio data. Zero in a field means unknown or not applicable.
struct AudioStreamBasicDescription {
    Float64 mSampleRate = 0;     ///< frames per second
    AudioFormatID mFormatID = 0; ///< coding
    AudioFormatFlags mFormatFlags = 0;
    UInt32 mBytesPerPacket = 0;  ///< 0 for packets of variable size
    UInt32 mFramesPerPacket = 0; ///< 1 for linear PCM
    UInt32 mBytesPerFrame = 0;   ///< of one buffer: all channels when interleaved, one channel when not
    UInt32 mChannelsPerFrame = 0;
    UInt32 mBitsPerChannel = 0; ///< significant bits of a sample
    UInt32 mReserved = 0;       ///< pads the record to 40 bytes; always 0
};
static_assert(sizeof(AudioStreamBasicDescription) == 40);

/// Where one packet lies in a buffer of packets of variable size.
struct AudioStreamPacketDescription {
    SInt64 mStartOffset = 0;            ///< bytes from the buffer's start
    UInt32 mVariableFramesInPacket = 0; ///< 0 when the format's frames per packet apply
    UInt32 mDataByteSize = 0;
};

/// One buffer of samples.
struct AudioBuffer {
    UInt32 mNumberChannels = 0; ///< interleaved channels in this buffer
    UInt32 mDataByteSize = 0;   ///< bytes of data
    void* mData = nullptr;
};

/// A list of buffers. One with more than one buffer is allocated with room for the further entries.
struct AudioBufferList {
    UInt32 mNumberBuffers = 0;
    AudioBuffer mBuffers[1];
};

struct AudioValueRange {
    Float64 mMinimum = 0;
    Float64 mMaximum = 0;
};

inline constexpr AudioFormatID kAudioFormatLinearPCM = qmx::fourCharCode("lpcm");
inline constexpr AudioFormatID kAudioFormatAC3 = qmx::fourCharCode("ac-3");
inline constexpr AudioFormatID kAudioFormat60958AC3 = qmx::fourCharCode("cac3");
inline constexpr AudioFormatID kAudioFormatAppleIMA4 = qmx::fourCharCode("ima4");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC = qmx::fourCharCode("aac ");
inline constexpr AudioFormatID kAudioFormatMPEG4CELP = qmx::fourCharCode("celp");
inline constexpr AudioFormatID kAudioFormatMPEG4HVXC = qmx::fourCharCode("hvxc");
inline constexpr AudioFormatID kAudioFormatMPEG4TwinVQ = qmx::fourCharCode("twvq");
inline constexpr AudioFormatID kAudioFormatMACE3 = qmx::fourCharCode("MAC3");
inline constexpr AudioFormatID kAudioFormatMACE6 = qmx::fourCharCode("MAC6");
inline constexpr AudioFormatID kAudioFormatULaw = qmx::fourCharCode("ulaw");
inline constexpr AudioFormatID kAudioFormatALaw = qmx::fourCharCode("alaw");
inline constexpr AudioFormatID kAudioFormatQDesign = qmx::fourCharCode("QDMC");
inline constexpr AudioFormatID kAudioFormatQDesign2 = qmx::fourCharCode("QDM2");
inline constexpr AudioFormatID kAudioFormatQUALCOMM = qmx::fourCharCode("Qclp");
inline constexpr AudioFormatID kAudioFormatMPEGLayer1 = qmx::fourCharCode(".mp1");
inline constexpr AudioFormatID kAudioFormatMPEGLayer2 = qmx::fourCharCode(".mp2");
inline constexpr AudioFormatID kAudioFormatMPEGLayer3 = qmx::fourCharCode(".mp3");
inline constexpr AudioFormatID kAudioFormatDVAudio = qmx::fourCharCode("dvca");
inline constexpr AudioFormatID kAudioFormatVariableDurationDVAudio = qmx::fourCharCode("vdva");
inline constexpr AudioFormatID kAudioFormatTimeCode = qmx::fourCharCode("time");
inline constexpr AudioFormatID kAudioFormatMIDIStream = qmx::fourCharCode("midi");
inline constexpr AudioFormatID kAudioFormatParameterValueStream = qmx::fourCharCode("apvs");
inline constexpr AudioFormatID kAudioFormatAppleLossless = qmx::fourCharCode("alac");
inline constexpr AudioFormatID kAudioFormatMPEG = qmx::fourCharCode("mpeg");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC_HE = qmx::fourCharCode("aach");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC_LD = qmx::fourCharCode("aacl");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC_ELD = qmx::fourCharCode("aace");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC_ELD_SBR = qmx::fourCharCode("aacf");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC_ELD_V2 = qmx::fourCharCode("aacg");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC_HE_V2 = qmx::fourCharCode("aacp");
inline constexpr AudioFormatID kAudioFormatMPEG4AAC_Spatial = qmx::fourCharCode("aacs");
inline constexpr AudioFormatID kAudioFormatAMR = qmx::fourCharCode("samr");
inline constexpr AudioFormatID kAudioFormatAMR_WB = qmx::fourCharCode("sawb");
inline constexpr AudioFormatID kAudioFormatAudible = qmx::fourCharCode("AUDB");
inline constexpr AudioFormatID kAudioFormatiLBC = qmx::fourCharCode("ilbc");
inline constexpr AudioFormatID kAudioFormatDVIIntelIMA = 0x6D730011;
inline constexpr AudioFormatID kAudioFormatMicrosoftGSM = 0x6D730031;
inline constexpr AudioFormatID kAudioFormatAES3 = qmx::fourCharCode("aes3");
inline constexpr AudioFormatID kAudioFormatEnhancedAC3 = qmx::fourCharCode("ec-3");
inline constexpr AudioFormatID kAudioFormatFLAC = qmx::fourCharCode("flac");
inline constexpr AudioFormatID kAudioFormatOpus = qmx::fourCharCode("opus");

inline constexpr AudioFormatFlags kAudioFormatFlagIsFloat = 0x1;
inline constexpr AudioFormatFlags kAudioFormatFlagIsBigEndian = 0x2;
inline constexpr AudioFormatFlags kAudioFormatFlagIsSignedInteger = 0x4;
inline constexpr AudioFormatFlags kAudioFormatFlagIsPacked = 0x8;
inline constexpr AudioFormatFlags kAudioFormatFlagIsAlignedHigh = 0x10;
inline constexpr AudioFormatFlags kAudioFormatFlagIsNonInterleaved = 0x20;
inline constexpr AudioFormatFlags kAudioFormatFlagIsNonMixable = 0x40;
inline constexpr AudioFormatFlags kAudioFormatFlagsAreAllClear = 0x80000000;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagIsFloat = 0x1;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagIsBigEndian = 0x2;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagIsSignedInteger = 0x4;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagIsPacked = 0x8;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagIsAlignedHigh = 0x10;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagIsNonInterleaved = 0x20;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagIsNonMixable = 0x40;
inline constexpr AudioFormatFlags kLinearPCMFormatFlagsAreAllClear = 0x80000000;
inline constexpr AudioFormatFlags kAudioFormatFlagsNativeEndian = 0;
inline constexpr AudioFormatFlags kAudioFormatFlagsNativeFloatPacked = 0x9;
inline constexpr AudioFormatFlags kAudioFormatFlagsCanonical = 0x9;
inline constexpr AudioFormatFlags kAudioFormatFlagsAudioUnitCanonical = 0x29;
inline constexpr AudioFormatFlags kAppleLosslessFormatFlag_16BitSourceData = 1;
inline constexpr AudioFormatFlags kAppleLosslessFormatFlag_20BitSourceData = 2;
inline constexpr AudioFormatFlags kAppleLosslessFormatFlag_24BitSourceData = 3;
inline constexpr AudioFormatFlags kAppleLosslessFormatFlag_32BitSourceData = 4;
inline constexpr AudioFormatFlags kMPEG4Object_AAC_Main = 1;
inline constexpr AudioFormatFlags kMPEG4Object_AAC_LC = 2;
inline constexpr AudioFormatFlags kMPEG4Object_AAC_SSR = 3;
inline constexpr AudioFormatFlags kMPEG4Object_AAC_LTP = 4;
inline constexpr AudioFormatFlags kMPEG4Object_AAC_SBR = 5;
inline constexpr AudioFormatFlags kMPEG4Object_AAC_Scalable = 6;
inline constexpr AudioFormatFlags kMPEG4Object_TwinVQ = 7;
inline constexpr AudioFormatFlags kMPEG4Object_CELP = 8;
inline constexpr AudioFormatFlags kMPEG4Object_HVXC = 9;
