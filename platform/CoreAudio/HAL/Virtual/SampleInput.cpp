// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/SampleInput.h"

#include "AudioToolbox/AudioConverter.h"
#include "AudioToolbox/AudioFile.h"
#include "CoreServices/Files.h"

#include <algorithm>
#include <memory>

namespace qmx
{
namespace
{

constexpr std::size_t mostBytes = std::size_t{256} << 20;

struct CloseFile {
    void operator()(OpaqueAudioFileID* file) const { (void)AudioFileClose(file); } // it was only read: nothing is lost
};
struct DisposeConverter {
    void operator()(OpaqueAudioConverter* converter) const { (void)AudioConverterDispose(converter); }
};

// Reads and converts the file's packets, a block at a time.
class Decoder
{
public:
    OSStatus open(const std::string& path, Float64 sampleRate)
    {
        FSRef reference;
        if (const OSStatus status = FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &reference, nullptr))
            return status;
        AudioFileID file = nullptr;
        if (const OSStatus status = AudioFileOpen(&reference, fsRdPerm, 0, &file))
            return status;
        file_.reset(file);
        UInt32 size = sizeof source_;
        if (const OSStatus status = AudioFileGetProperty(file, kAudioFilePropertyDataFormat, &size, &source_))
            return status;
        client_ = packedPhysicalFormat(sampleRate, source_.mChannelsPerFrame, 32, true);
        AudioConverterRef converter = nullptr;
        if (const OSStatus status = AudioConverterNew(&source_, &client_, &converter))
            return status;
        converter_.reset(converter);
        if (source_.mBytesPerPacket == 0)
            return kAudioFileUnsupportedDataFormatError; // packets of variable size
        packets_.resize(std::max<std::size_t>(1, blockBytes / source_.mBytesPerPacket) * source_.mBytesPerPacket);
        return noErr;
    }

    OSStatus decode(FileSamples& result)
    {
        result.channels = client_.mChannelsPerFrame;
        const std::size_t most = mostBytes / client_.mBytesPerFrame * client_.mBytesPerFrame;
        std::vector<Float32> block(blockBytes);
        while (result.samples.size() * sizeof(Float32) < most) {
            const UInt32 framesWanted = static_cast<UInt32>(block.size() / result.channels);
            UInt32 frames = framesWanted;
            AudioBufferList list{};
            list.mNumberBuffers = 1;
            list.mBuffers[0] = {.mNumberChannels = result.channels,
                                .mDataByteSize = frames * client_.mBytesPerFrame,
                                .mData = block.data()};
            const OSStatus status =
                AudioConverterFillComplexBuffer(converter_.get(), supply, this, &frames, &list, nullptr);
            const auto count = static_cast<std::ptrdiff_t>(std::size_t{frames} * result.channels);
            result.samples.insert(result.samples.end(), block.begin(), block.begin() + count);
            if (status)
                return status;
            if (frames == 0)
                return noErr;
        }
        return kAudio_MemFullError;
    }

private:
    static constexpr std::size_t blockBytes = 65536;

    static OSStatus supply(AudioConverterRef /*converter*/, UInt32* packetCount, AudioBufferList* data,
                           AudioStreamPacketDescription** /*descriptions*/, void* userData)
    {
        auto& self = *static_cast<Decoder*>(userData);
        UInt32 packets =
            std::min(*packetCount, static_cast<UInt32>(self.packets_.size() / self.source_.mBytesPerPacket));
        UInt32 bytes = static_cast<UInt32>(self.packets_.size());
        const OSStatus status =
            AudioFileReadPackets(self.file_.get(), false, &bytes, nullptr, self.next_, &packets, self.packets_.data());
        const bool isAtEnd = status == eofErr || packets == 0;
        *packetCount = isAtEnd ? 0 : packets;
        self.next_ += *packetCount;
        data->mBuffers[0].mData = self.packets_.data();
        data->mBuffers[0].mDataByteSize = isAtEnd ? 0 : bytes;
        data->mBuffers[0].mNumberChannels = self.source_.mChannelsPerFrame;
        return isAtEnd ? noErr : status;
    }

    std::unique_ptr<OpaqueAudioFileID, CloseFile> file_;
    std::unique_ptr<OpaqueAudioConverter, DisposeConverter> converter_;
    AudioStreamBasicDescription source_, client_;
    std::vector<std::byte> packets_;
    SInt64 next_ = 0;
};

// Plays samples; the first call sets the device's sample time that they start at.
class Player
{
public:
    Player(std::vector<Float32> samples, UInt32 channels, bool repeats)
        : samples_(std::move(samples)), channels_(channels),
          frames_(channels ? static_cast<SInt64>(samples_.size() / channels) : 0), repeats_(repeats)
    {
    }

    void fill(Float32* target, UInt32 frames, UInt32 channels, SInt64 firstFrame)
    {
        if (!isBegun_)
            begin_ = firstFrame;
        isBegun_ = true;
        const UInt32 common = std::min(channels, channels_);
        for (UInt32 frame = 0; frame < frames; ++frame)
            if (const SInt64 source = frameAt(firstFrame + frame - begin_); source >= 0)
                std::copy_n(&samples_[static_cast<std::size_t>(source) * channels_], common,
                            target + std::size_t{frame} * channels);
    }

private:
    SInt64 frameAt(SInt64 frame) const
    {
        if (frame < 0 || frames_ == 0 || (!repeats_ && frame >= frames_))
            return -1;
        return frame % frames_;
    }

    const std::vector<Float32> samples_;
    const UInt32 channels_;
    const SInt64 frames_;
    const bool repeats_;
    bool isBegun_ = false;
    SInt64 begin_ = 0;
};

} // namespace

VirtualInput inputOfSamples(std::vector<Float32> samples, UInt32 channels, bool repeats)
{
    return [player = std::make_shared<Player>(std::move(samples), channels, repeats)](
               Float32* target, UInt32 frames, UInt32 deviceChannels, SInt64 firstFrame) {
        player->fill(target, frames, deviceChannels, firstFrame);
    };
}

OSStatus readAudioFile(const std::string& path, Float64 sampleRate, FileSamples& result)
{
    Decoder decoder;
    if (const OSStatus status = decoder.open(path, sampleRate))
        return status;
    return decoder.decode(result);
}

} // namespace qmx
