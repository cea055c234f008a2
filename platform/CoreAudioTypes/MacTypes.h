// SPDX-License-Identifier: MIT
// The platform's basic types and general status codes.
#pragma once

#include <cstdint>

using UInt8 = std::uint8_t;
using SInt8 = std::int8_t;
using UInt16 = std::uint16_t;
using SInt16 = std::int16_t;
using UInt32 = std::uint32_t;
using SInt32 = std::int32_t;
using UInt64 = std::uint64_t;
using SInt64 = std::int64_t;
using Float32 = float;
using Float64 = double;
using Byte = UInt8;
using Boolean = bool;
using OSErr = SInt16;
using OSStatus = SInt32;
using FourCharCode = UInt32;
using OSType = FourCharCode;

inline constexpr OSStatus noErr = 0;
inline constexpr OSStatus unimpErr = -4;
inline constexpr OSStatus dskFulErr = -34;
inline constexpr OSStatus nsvErr = -35;
inline constexpr OSStatus ioErr = -36;
inline constexpr OSStatus bdNamErr = -37;
inline constexpr OSStatus fnOpnErr = -38;
inline constexpr OSStatus eofErr = -39;
inline constexpr OSStatus posErr = -40;
inline constexpr OSStatus tmfoErr = -42;
inline constexpr OSStatus fnfErr = -43;
inline constexpr OSStatus fBsyErr = -47;
inline constexpr OSStatus dupFNErr = -48;
inline constexpr OSStatus opWrErr = -49;
inline constexpr OSStatus paramErr = -50;
inline constexpr OSStatus permErr = -54;
inline constexpr OSStatus wrPermErr = -61;
inline constexpr OSStatus memFullErr = -108;
inline constexpr OSStatus dirNFErr = -120;
inline constexpr OSStatus errFSBadFSRef = -1401;
inline constexpr OSStatus kAudio_UnimplementedError = -4;
inline constexpr OSStatus kAudio_FileNotFoundError = -43;
inline constexpr OSStatus kAudio_ParamError = -50;
inline constexpr OSStatus kAudio_MemFullError = -108;
