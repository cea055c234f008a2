// SPDX-License-Identifier: MIT
// Points in time of an audio device.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>

/// A time of day as film and video count it. No device of this library reports one.
struct SMPTETime {
    SInt16 mSubframes = 0;
    SInt16 mSubframeDivisor = 0;
    UInt32 mCounter = 0;
    UInt32 mType = 0;
    UInt32 mFlags = 0;
    SInt16 mHours = 0;
    SInt16 mMinutes = 0;
    SInt16 mSeconds = 0;
    SInt16 mFrames = 0;
};

/// One instant, in as many clocks as `mFlags` names.
struct AudioTimeStamp {
    Float64 mSampleTime = 0;   ///< frames of the device's own clock
    UInt64 mHostTime = 0;      ///< nanoseconds, see AudioGetCurrentHostTime
    Float64 mRateScalar = 0;   ///< actual host ticks per frame divided by the nominal ones; 1 for an exact device
    UInt64 mWordClockTime = 0; ///< unused
    SMPTETime mSMPTETime;      ///< unused
    UInt32 mFlags = 0;         ///< which of the fields are valid
    UInt32 mReserved = 0;
};
static_assert(sizeof(AudioTimeStamp) == 64);

inline constexpr UInt32 kAudioTimeStampSampleTimeValid = 0x1;
inline constexpr UInt32 kAudioTimeStampHostTimeValid = 0x2;
inline constexpr UInt32 kAudioTimeStampRateScalarValid = 0x4;
inline constexpr UInt32 kAudioTimeStampWordClockTimeValid = 0x8;
inline constexpr UInt32 kAudioTimeStampSMPTETimeValid = 0x10;
inline constexpr UInt32 kAudioTimeStampSampleHostTimeValid = 0x3;

inline constexpr UInt32 kSMPTETimeType24 = 0;
inline constexpr UInt32 kSMPTETimeType25 = 1;
inline constexpr UInt32 kSMPTETimeType30Drop = 2;
inline constexpr UInt32 kSMPTETimeType30 = 3;
inline constexpr UInt32 kSMPTETimeType2997 = 4;
inline constexpr UInt32 kSMPTETimeType2997Drop = 5;
inline constexpr UInt32 kSMPTETimeType60 = 6;
inline constexpr UInt32 kSMPTETimeType5994 = 7;
inline constexpr UInt32 kSMPTETimeValid = 0x1;
inline constexpr UInt32 kSMPTETimeRunning = 0x2;
