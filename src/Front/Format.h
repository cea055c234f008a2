// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/AudioToolbox/AudioFile.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Result.h>

#include <string>

namespace qmx
{

/// The type of a file and the coding of its samples: what a file is in, or what one is to be made in. What is 0 in a
/// wish is left to completedFrom(). A plain value; any thread.
struct QMX_EXPORT Format {
    AudioFileTypeID fileType = 0;
    /// Of a wish: rate, channels, coding, bits, and the flag of floats; with bytes per frame it is taken as it is.
    AudioStreamBasicDescription stream{};
    UInt32 bitRate = 0; ///< bits per second of a lossy coding; 0: the encoder's choice

    // Uncompressed samples. `sampleRate` in Hz; `bits` of integers (8, 16, 20, 24 or 32). WAVE is little-endian, the
    // others big-endian.
    static Format wave(Float64 sampleRate = 0, UInt32 bits = 0);
    static Format rf64(Float64 sampleRate = 0, UInt32 bits = 0); ///< WAVE of more than 4 GiB
    static Format aiff(Float64 sampleRate = 0, UInt32 bits = 0); ///< AIFF-C for floats
    static Format caf(Float64 sampleRate = 0, UInt32 bits = 0);
    // Compressed samples; `bitRate` in bits per second, `bits` 16, 20 or 24.
    static Format aac(UInt32 bitRate = 0);  ///< in an MPEG-4 file
    static Format adts(UInt32 bitRate = 0); ///< AAC without a container
    static Format mp3(UInt32 bitRate = 0);
    static Format alac(UInt32 bits = 0); ///< in an MPEG-4 file
    static Format flac(UInt32 bits = 0);

    Format withSampleRate(Float64 sampleRate) const;
    Format withChannels(UInt32 channels) const;
    Format withFloats() const; ///< 32-bit

    /// The wish that a path's extension stands for; kAudioFileUnsupportedFileTypeError for an unknown one.
    static Result<Format> forPath(const std::string& path);
    /// The wish that the four characters of a file type stand for, in either case: "AIFF", "m4af"; paramErr with a list
    /// of them for others.
    static Result<Format> forTypeCode(const std::string& code);
    /// What the file at `path` is in. Not on real-time threads.
    static Result<Format> of(const std::string& path);

    /// The wish with what it leaves open taken from `source`, so that no sample loses anything that the wish does not
    /// ask for: the same rate, channels and bits, and floats for floats. Integers of 16 bits come from a lossy coding,
    /// 24 bits from floats into a lossless one. An error where that cannot be: more than 24 bits into a lossless
    /// coding, floats into Sound Designer files, no rate or channels at all.
    Result<Format> completedFrom(const Format& source) const;

    /// Whether the samples are linear PCM, floats, or a coding that gives back every bit.
    bool isLinear() const { return stream.mFormatID == kAudioFormatLinearPCM; }
    bool isFloat() const;
    bool isLossless() const;
    /// Whether files of the type keep tracks and records of processing.
    bool keepsTracks() const;
    /// Bits of an integer sample that the file gives back; 0 for floats and lossy codings.
    UInt32 integerBits() const;

    /// "AIFF, 16-bit linear PCM, 2 channels, 44100 Hz", without what is left open.
    std::string text() const;
    /// The usual extension of such files, with its dot; empty if it is not known.
    std::string extension() const;
};

} // namespace qmx
