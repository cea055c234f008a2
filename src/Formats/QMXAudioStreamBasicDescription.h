// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/CoreAudioTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>

/// The format of a stream of audio data, as it is handed between devices, files, converters and recorders. Mutable: all
/// holders of an object share its changes; a copy is a new object made from the old one's record. One thread at a time
/// per object.
class QMX_EXPORT QMXAudioStreamBasicDescription : public qmx::Object
{
public:
    explicit QMXAudioStreamBasicDescription(const AudioStreamBasicDescription& record);

    /// Copies the whole record; null for a null record.
    static std::shared_ptr<QMXAudioStreamBasicDescription>
    initWithAudioStreamBasicDescription(const AudioStreamBasicDescription* record);

    /// A new object with one of the twelve standard formats, 0 to 11; any other number gives format 0.
    static std::shared_ptr<QMXAudioStreamBasicDescription> standardFormat(SInt32 number);
    /// 44100 Hz, stereo, 16-bit big-endian integer.
    static std::shared_ptr<QMXAudioStreamBasicDescription> defaultStandardFileFormat();
    /// 44100 Hz, stereo, 32-bit native float, interleaved.
    static std::shared_ptr<QMXAudioStreamBasicDescription> defaultStandardDeviceFormat();
    /// A stereo format of the coding `formatID` at `sampleRate` Hz. The format service fills in what it knows of the
    /// coding; an unknown coding leaves the other fields 0.
    static std::shared_ptr<QMXAudioStreamBasicDescription> standardFormatWithId_sampleRate(AudioFormatID formatID,
                                                                                           Float64 sampleRate);

    /// The object's own record, valid while the object lives.
    const AudioStreamBasicDescription* audioStreamBasicDescription() const { return &mAudioStreamBasicDescription; }

    /// Frames per second.
    Float64 sampleRate() const { return mAudioStreamBasicDescription.mSampleRate; }
    void setSampleRate(Float64 sampleRate) { mAudioStreamBasicDescription.mSampleRate = sampleRate; }
    /// The coding, a four-character code.
    AudioFormatID formatID() const { return mAudioStreamBasicDescription.mFormatID; }
    void setFormatID(AudioFormatID formatID) { mAudioStreamBasicDescription.mFormatID = formatID; }
    AudioFormatFlags formatFlags() const { return mAudioStreamBasicDescription.mFormatFlags; }
    void setFormatFlags(AudioFormatFlags formatFlags) { mAudioStreamBasicDescription.mFormatFlags = formatFlags; }
    /// 0 for packets of variable size.
    UInt32 bytesPerPacket() const { return mAudioStreamBasicDescription.mBytesPerPacket; }
    void setBytesPerPacket(UInt32 bytes) { mAudioStreamBasicDescription.mBytesPerPacket = bytes; }
    /// 1 for linear PCM.
    UInt32 framesPerPacket() const { return mAudioStreamBasicDescription.mFramesPerPacket; }
    void setFramesPerPacket(UInt32 frames) { mAudioStreamBasicDescription.mFramesPerPacket = frames; }
    /// Of one buffer: all channels when interleaved, one channel when not.
    UInt32 bytesPerFrame() const { return mAudioStreamBasicDescription.mBytesPerFrame; }
    void setBytesPerFrame(UInt32 bytes) { mAudioStreamBasicDescription.mBytesPerFrame = bytes; }
    UInt32 channelsPerFrame() const { return mAudioStreamBasicDescription.mChannelsPerFrame; }
    void setChannelsPerFrame(UInt32 channels) { mAudioStreamBasicDescription.mChannelsPerFrame = channels; }
    /// Significant bits of one sample.
    UInt32 bitsPerChannel() const { return mAudioStreamBasicDescription.mBitsPerChannel; }
    void setBitsPerChannel(UInt32 bits) { mAudioStreamBasicDescription.mBitsPerChannel = bits; }
    UInt32 reserved() const { return mAudioStreamBasicDescription.mReserved; }

    bool isFloat() const { return hasFlag(kAudioFormatFlagIsFloat); }
    bool isBigEndian() const { return hasFlag(kAudioFormatFlagIsBigEndian); }
    bool isSignedInteger() const { return hasFlag(kAudioFormatFlagIsSignedInteger); }
    bool isPacked() const { return hasFlag(kAudioFormatFlagIsPacked); }
    bool isAlignedHigh() const { return hasFlag(kAudioFormatFlagIsAlignedHigh); }
    bool isNonInterleaved() const { return hasFlag(kAudioFormatFlagIsNonInterleaved); }

    /// The coding's name for people, "Unknown format" if it has none.
    std::string formatIDName() const;

    /// One line for menus and logs: "44100Hz, stereo, 16 bits".
    std::string description() const override;
    /// All fields, one line each.
    std::string debugDescription() const;
    /// The names of the set flags, one line each; empty when none is set.
    std::string printStreamFormatFlagNames() const;

    /// Whether `other` is a format with the same fields; the reserved field does not count.
    bool isEqual(const qmx::Object* other) const override;
    /// Whether `text` is this format's description. Formats of different codings may share one, so that they match the
    /// same menu entry.
    bool isEqualToString(const std::string& text) const;

private:
    bool hasFlag(AudioFormatFlags flag) const { return (mAudioStreamBasicDescription.mFormatFlags & flag) != 0; }

    AudioStreamBasicDescription mAudioStreamBasicDescription;
};
