// SPDX-License-Identifier: MIT
// The converter service: audio data from one format to another. One thread at a time per converter.
//
// Non-interleaved data in one contiguous buffer lie channel after channel, and their sizes count all channels.
//
// Compressed formats (AAC, ALAC, FLAC, MP3) go to and from linear PCM of any layout, rate and channel count by
// AudioConverterFillComplexBuffer; AudioConverterConvertBuffer returns 'op??' for them. Of the compressed format's
// record, only the coding, rate and channels are used (for ALAC and FLAC also the flags: the bits of the source,
// kAppleLosslessFormatFlag_...); the current stream descriptions ('acid', 'acod') return the complete record. Channels
// are in the order of WAVE files: L R C LFE Ls Rs ...
//
// Decoding. Set kAudioConverterDecompressionMagicCookie to the file's cookie first, if it has one. The input procedure
// supplies packets in one buffer and their descriptions. Each packet becomes exactly `mFramesPerPacket` frames (if that
// is 0, the frames of its description): a packet that is cut short or damaged is completed with silence, so that what
// follows keeps its place. The encoder's priming and remainder frames come out too, unless kAudioConverterPrimeInfo is
// set on a decoding converter: it then drops that many frames (of the compressed format) from the start of the stream
// and from its end, before any rate conversion. The setting holds for this stream and each later one; a stream starts
// after AudioConverterReset and after the input's end. Before it is set it is {0, 0}. To read from frame f of a file: s
// = priming + f; first packet p = max(0, s / mFramesPerPacket - roll distance); set the prime info to {s - p *
// mFramesPerPacket, remainder}; reset; supply packets from p to the last: the output is frame f and all that follow, to
// the last valid one.
//
// Encoding. kAudioConverterEncodeBitRate (bits a second) can be set before the first packet; the converter takes the
// nearest applicable rate (-50 later). Packets come with descriptions ('!pkd' without room for them), each at most
// kAudioConverterPropertyMaximumOutputPacketSize bytes: 'otsz' for a buffer that cannot hold the next one, which is
// kept. The end of the input drains the encoder. kAudioConverterPrimeInfo reports the priming frames (leading) from the
// start on and the remainder frames (trailing) after the drain; kAudioConverterCompressionMagicCookie is available from
// the start on and final after the drain.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

/// A converter; null is none.
using AudioConverterRef = struct OpaqueAudioConverter*;
using AudioConverterPropertyID = UInt32;

inline constexpr AudioConverterPropertyID kAudioConverterPropertyMinimumInputBufferSize = qmx::fourCharCode("mibs");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyMinimumOutputBufferSize = qmx::fourCharCode("mobs");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyMaximumInputBufferSize = qmx::fourCharCode("xibs");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyMaximumInputPacketSize = qmx::fourCharCode("xips");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyMaximumOutputPacketSize = qmx::fourCharCode("xops");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyCalculateInputBufferSize = qmx::fourCharCode("cibs");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyCalculateOutputBufferSize = qmx::fourCharCode("cobs");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyInputCodecParameters = qmx::fourCharCode("icdp");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyOutputCodecParameters = qmx::fourCharCode("ocdp");
inline constexpr AudioConverterPropertyID kAudioConverterSampleRateConverterAlgorithm = qmx::fourCharCode("srci");
inline constexpr AudioConverterPropertyID kAudioConverterSampleRateConverterQuality = qmx::fourCharCode("srcq");
inline constexpr AudioConverterPropertyID kAudioConverterCodecQuality = qmx::fourCharCode("cdqu");
inline constexpr AudioConverterPropertyID kAudioConverterPrimeMethod = qmx::fourCharCode("prmm");
inline constexpr AudioConverterPropertyID kAudioConverterPrimeInfo = qmx::fourCharCode("prim");
inline constexpr AudioConverterPropertyID kAudioConverterChannelMap = qmx::fourCharCode("chmp");
inline constexpr AudioConverterPropertyID kAudioConverterDecompressionMagicCookie = qmx::fourCharCode("dmgc");
inline constexpr AudioConverterPropertyID kAudioConverterCompressionMagicCookie = qmx::fourCharCode("cmgc");
inline constexpr AudioConverterPropertyID kAudioConverterEncodeBitRate = qmx::fourCharCode("brat");
inline constexpr AudioConverterPropertyID kAudioConverterEncodeAdjustableSampleRate = qmx::fourCharCode("ajsr");
inline constexpr AudioConverterPropertyID kAudioConverterInputChannelLayout = qmx::fourCharCode("icl ");
inline constexpr AudioConverterPropertyID kAudioConverterOutputChannelLayout = qmx::fourCharCode("ocl ");
inline constexpr AudioConverterPropertyID kAudioConverterApplicableEncodeBitRates = qmx::fourCharCode("aebr");
inline constexpr AudioConverterPropertyID kAudioConverterAvailableEncodeBitRates = qmx::fourCharCode("vebr");
inline constexpr AudioConverterPropertyID kAudioConverterApplicableEncodeSampleRates = qmx::fourCharCode("aesr");
inline constexpr AudioConverterPropertyID kAudioConverterAvailableEncodeSampleRates = qmx::fourCharCode("vesr");
inline constexpr AudioConverterPropertyID kAudioConverterAvailableEncodeChannelLayoutTags = qmx::fourCharCode("aecl");
inline constexpr AudioConverterPropertyID kAudioConverterCurrentOutputStreamDescription = qmx::fourCharCode("acod");
inline constexpr AudioConverterPropertyID kAudioConverterCurrentInputStreamDescription = qmx::fourCharCode("acid");
inline constexpr AudioConverterPropertyID kAudioConverterPropertySettings = qmx::fourCharCode("acps");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyBitDepthHint = qmx::fourCharCode("acbd");
inline constexpr AudioConverterPropertyID kAudioConverterSampleRateConverterComplexity = qmx::fourCharCode("srca");
inline constexpr AudioConverterPropertyID kAudioConverterSampleRateConverterInitialPhase = qmx::fourCharCode("srcp");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyFormatList = qmx::fourCharCode("flst");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyDithering = qmx::fourCharCode("dith");
inline constexpr AudioConverterPropertyID kAudioConverterPropertyDitherBitDepth = qmx::fourCharCode("dbit");

inline constexpr UInt32 kAudioConverterQuality_Max = 127;
inline constexpr UInt32 kAudioConverterQuality_High = 96;
inline constexpr UInt32 kAudioConverterQuality_Medium = 64;
inline constexpr UInt32 kAudioConverterQuality_Low = 32;
inline constexpr UInt32 kAudioConverterQuality_Min = 0;

inline constexpr OSStatus kAudioConverterErr_FormatNotSupported = qmx::statusCode("fmt?");
inline constexpr OSStatus kAudioConverterErr_OperationNotSupported = qmx::statusCode("op\?\?");
inline constexpr OSStatus kAudioConverterErr_PropertyNotSupported = qmx::statusCode("prop");
inline constexpr OSStatus kAudioConverterErr_InvalidInputSize = qmx::statusCode("insz");
inline constexpr OSStatus kAudioConverterErr_InvalidOutputSize = qmx::statusCode("otsz");
inline constexpr OSStatus kAudioConverterErr_UnspecifiedError = qmx::statusCode("what");
inline constexpr OSStatus kAudioConverterErr_BadPropertySizeError = qmx::statusCode("!siz");
inline constexpr OSStatus kAudioConverterErr_RequiresPacketDescriptionsError = qmx::statusCode("!pkd");
inline constexpr OSStatus kAudioConverterErr_InputSampleRateOutOfRange = qmx::statusCode("!isr");
inline constexpr OSStatus kAudioConverterErr_OutputSampleRateOutOfRange = qmx::statusCode("!osr");

/// The value of kAudioConverterPrimeInfo, in frames of the compressed format.
struct AudioConverterPrimeInfo {
    UInt32 leadingFrames = 0;
    UInt32 trailingFrames = 0;
};

/// Makes a converter between two formats; 'fmt?' and a null `*converter` if that is not possible.
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterNew(const AudioStreamBasicDescription* source,
                                                    const AudioStreamBasicDescription* destination,
                                                    AudioConverterRef* converter);
/// Frees a converter; -50 for null.
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterDispose(AudioConverterRef converter);
/// Forgets what was fed in: the next data start a new stream.
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterReset(AudioConverterRef converter);

/// The size of a property's value and whether it can be set; either output may be null. 'prop' for a property that this
/// converter lacks.
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterGetPropertyInfo(AudioConverterRef converter,
                                                                AudioConverterPropertyID property, UInt32* size,
                                                                Boolean* isWritable);
/// Copies a property's value; a size query takes a byte count in the value and replaces it by the answer.
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterGetProperty(AudioConverterRef converter,
                                                            AudioConverterPropertyID property, UInt32* size,
                                                            void* value);
/// Sets a property; the value is copied. 'prop' if this converter lacks it, 'op??' if it cannot be set, '!siz' for a
/// wrong size, -50 for a bad value.
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterSetProperty(AudioConverterRef converter,
                                                            AudioConverterPropertyID property, UInt32 size,
                                                            const void* value);

/// Converts a whole buffer. All input is consumed; `*outputSize` is the room in bytes on entry and the bytes produced
/// on return. When the rate changes, consecutive calls are one stream: what the filter still holds comes out with later
/// calls, and a call with 0 input bytes drains it. 'insz' for input that is not whole frames, 'otsz' for too small an
/// output (nothing is consumed then).
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterConvertBuffer(AudioConverterRef converter, UInt32 inputSize,
                                                              const void* input, UInt32* outputSize, void* output);

/// Supplies up to `*packetCount` packets of source data: sets it to the packets supplied and points the list's buffers
/// at the data, which stay valid until the next call. 0 packets with status 0 mean the end; another status ends the
/// conversion and becomes its result.
using AudioConverterComplexInputDataProc = OSStatus (*)(AudioConverterRef converter, UInt32* packetCount,
                                                        AudioBufferList* data,
                                                        AudioStreamPacketDescription** packetDescriptions,
                                                        void* userData);

/// Pulls source data through `inputProc` until `*packetCount` output packets are made, the list's buffers are full, or
/// the input ends; `*packetCount` and the buffers' byte sizes become what was made. Compressed packets go into the
/// first buffer, one after the other, described by `packetDescriptions` (room for `*packetCount`; null for linear PCM).
/// A status of `inputProc` is returned together with what was made before it.
[[nodiscard]] QMX_EXPORT OSStatus AudioConverterFillComplexBuffer(AudioConverterRef converter,
                                                                  AudioConverterComplexInputDataProc inputProc,
                                                                  void* userData, UInt32* packetCount,
                                                                  AudioBufferList* output,
                                                                  AudioStreamPacketDescription* packetDescriptions);
