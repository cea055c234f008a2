// SPDX-License-Identifier: MIT
// The audio format service: what the installed codings know about themselves.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

using AudioFormatPropertyID = UInt32;

inline constexpr AudioFormatPropertyID kAudioFormatProperty_FormatInfo = qmx::fourCharCode("fmti");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_FormatIsVBR = qmx::fourCharCode("fvbr");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_FormatIsExternallyFramed = qmx::fourCharCode("fexf");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_EncodeFormatIDs = qmx::fourCharCode("acof");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_DecodeFormatIDs = qmx::fourCharCode("acif");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_Encoders = qmx::fourCharCode("aven");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_Decoders = qmx::fourCharCode("avde");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_AvailableEncodeBitRates = qmx::fourCharCode("aebr");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_AvailableEncodeSampleRates = qmx::fourCharCode("aesr");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_AvailableEncodeChannelLayoutTags =
    qmx::fourCharCode("aecl");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_AvailableEncodeNumberChannels = qmx::fourCharCode("avnc");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_FormatName = qmx::fourCharCode("fnam");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ASBDFromESDS = qmx::fourCharCode("essd");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelLayoutFromESDS = qmx::fourCharCode("escl");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelLayoutForTag = qmx::fourCharCode("cmpl");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_TagForChannelLayout = qmx::fourCharCode("cmpt");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelLayoutForBitmap = qmx::fourCharCode("cmpb");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_BitmapForLayoutTag = qmx::fourCharCode("bmtg");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelLayoutName = qmx::fourCharCode("lonm");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelName = qmx::fourCharCode("cnam");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_MatrixMixMap = qmx::fourCharCode("mmap");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelMap = qmx::fourCharCode("chmp");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_NumberOfChannelsForLayout = qmx::fourCharCode("nchm");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_TagsForNumberOfChannels = qmx::fourCharCode("tagc");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_PanningMatrix = qmx::fourCharCode("panm");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_BalanceFade = qmx::fourCharCode("balf");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_FormatList = qmx::fourCharCode("flst");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_OutputFormatList = qmx::fourCharCode("ofls");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_FirstPlayableFormatFromList = qmx::fourCharCode("fpfl");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_FormatIsEncrypted = qmx::fourCharCode("cryp");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ASBDFromMPEGPacket = qmx::fourCharCode("admp");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_AreChannelLayoutsEquivalent = qmx::fourCharCode("cheq");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ValidateChannelLayout = qmx::fourCharCode("vacl");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelLayoutSimpleName = qmx::fourCharCode("lsnm");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ChannelShortName = qmx::fourCharCode("csnm");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ID3TagSize = qmx::fourCharCode("id3s");
inline constexpr AudioFormatPropertyID kAudioFormatProperty_ID3TagToDictionary = qmx::fourCharCode("id3d");

inline constexpr OSStatus kAudioFormatUnspecifiedError = qmx::statusCode("what");
inline constexpr OSStatus kAudioFormatUnsupportedPropertyError = qmx::statusCode("prop");
inline constexpr OSStatus kAudioFormatBadPropertySizeError = qmx::statusCode("!siz");
inline constexpr OSStatus kAudioFormatBadSpecifierSizeError = qmx::statusCode("!spc");
inline constexpr OSStatus kAudioFormatUnsupportedDataFormatError = qmx::statusCode("fmt?");
inline constexpr OSStatus kAudioFormatUnknownFormatError = qmx::statusCode("!fmt");

/// The size of a property's value for a specifier.
[[nodiscard]] QMX_EXPORT OSStatus AudioFormatGetPropertyInfo(AudioFormatPropertyID property, UInt32 specifierSize,
                                                             const void* specifier, UInt32* size);
/// Copies a property's value. kAudioFormatProperty_AvailableEncodeBitRates takes a coding's code as its specifier and
/// returns ranges of one rate each in bits a second, none for a coding that is not encoded or has no such choice.
/// kAudioFormatProperty_FormatInfo completes the record in `value`; for an unknown coding it returns '!fmt' and leaves
/// the record as it is.
[[nodiscard]] QMX_EXPORT OSStatus AudioFormatGetProperty(AudioFormatPropertyID property, UInt32 specifierSize,
                                                         const void* specifier, UInt32* size, void* value);
