// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Codings/Libav.h"
#include "AudioToolbox/Containers/Libav/LibavFile.h"
#include "AudioToolbox/Containers/Libav/MPEG4Atoms.h"
#include "AudioToolbox/Containers/PacketContainer.h"

#include <functional>
#include <string>

namespace qmx::libav
{

/// The sound of a file as one demuxer of libavformat finds it: the first audio stream of a known coding. No other file
/// is ever opened, whatever the file says.
class Reader
{
public:
    /// Returns whether it accepts more packets.
    using AddPacket = std::function<bool(const PacketPlace&)>;

    /// `demuxer`: its name.
    Reader(ContainerFile& file, std::string_view demuxer) : file_(file), demuxer_(demuxer), input_(file) {}

    /// 'dta?' for a damaged file, 'fmt?' for one without a known coding.
    OSStatus open();
    const AudioStreamBasicDescription& format() const { return format_; }

    /// Passes all packets in order to `add`, until it refuses one. Call once.
    OSStatus readPackets(const AddPacket& add);
    /// Known once the packets are read: the coding's own parameters, and frames of priming and of sound.
    const Bytes& bare() const { return bare_; }
    UInt64 primingFrames() const { return primingFrames_; }
    UInt64 validFrames() const { return validFrames_; }

private:
    bool chooseStream();
    OSStatus prepare();
    OSStatus pad();
    bool describe();
    std::optional<AudioStreamBasicDescription> describeByDecoding();
    void readIndex(const AddPacket& add);
    OSStatus readStream(const AddPacket& add);
    bool trimLastFrame(AVPacket& packet, UInt64 framesSoFar) const;
    UInt32 framesOf(const AVPacket& packet) const;
    bool makeUnwrapper();
    bool strip(AVPacket& packet);
    void stripOtherBytes(AVPacket& packet);
    bool unwrap(AVPacket& packet);
    void noteGaps(const AVPacket& packet);
    void setLengthOfMovie(UInt64 packets);
    bool setLengthFromComment(UInt64 frames);
    UInt64 framesIn(UInt64 time, AVRational tick) const;
    OSStatus statusFor(int error) const;

    ContainerFile& file_;
    std::string demuxer_;
    InputFile input_; // destroyed after what reads from it
    MPEG4Atoms atoms_;
    Input context_;
    Filter unwrapper_; ///< for packets with headers of their own
    AVStream* stream_ = nullptr;
    AudioStreamBasicDescription format_;
    Bytes bare_;
    std::optional<UInt32> firstHeader_;
    UInt64 primingFrames_ = 0, validFrames_ = 0, discarded_ = 0;
};

} // namespace qmx::libav
