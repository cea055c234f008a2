// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/Converter.h"

#include "AudioToolbox/Conversion/ChannelLayouts.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace qmx
{
namespace
{

constexpr UInt64 most32 = std::numeric_limits<UInt32>::max();

std::span<AudioBuffer> buffersOf(AudioBufferList& list)
{
    AudioBuffer* const first = list.mBuffers;
    return {first, list.mNumberBuffers};
}

/// Points `run` at the planes of one contiguous buffer.
template <class ByteT> void aimAtBuffer(FrameRun<ByteT>& run, ByteT* bytes, std::size_t frames)
{
    run.frames = frames;
    for (auto& plane : run.planes) {
        plane = bytes;
        bytes += frames * run.planeFrameBytes;
    }
}

/// Points `run` at the buffers of a list, for as many whole frames as all of them hold: none if buffers are missing.
template <class ByteT> void aimAtList(FrameRun<ByteT>& run, AudioBufferList& list)
{
    run.frames = 0;
    const auto buffers = buffersOf(list);
    if (buffers.size() < run.planes.size())
        return;
    std::size_t frames = most32;
    for (std::size_t plane = 0; plane < run.planes.size(); ++plane) {
        const AudioBuffer& buffer = buffers[plane];
        run.planes[plane] = static_cast<ByteT*>(buffer.mData);
        frames = std::min(frames, buffer.mData ? buffer.mDataByteSize / run.planeFrameBytes : 0);
    }
    run.frames = frames;
}

/// Moves planes that were written with room for `room` frames together to `frames` frames each.
void closeGaps(std::byte* bytes, const PcmLayout& layout, std::size_t room, std::size_t frames)
{
    const std::size_t frameBytes = layout.planeFrameBytes();
    for (UInt32 plane = 1; plane < layout.planes() && frames < room; ++plane)
        std::memmove(bytes + plane * frames * frameBytes, bytes + plane * room * frameBytes, frames * frameBytes);
}

} // namespace

std::unique_ptr<Converter> Converter::between(const AudioStreamBasicDescription& source,
                                              const AudioStreamBasicDescription& target)
{
    const auto sourceLayout = PcmLayout::of(source), targetLayout = PcmLayout::of(target);
    if (!sourceLayout || !targetLayout || !isUsableSampleRate(source.mSampleRate) ||
        !isUsableSampleRate(target.mSampleRate))
        return nullptr;
    std::unique_ptr<Converter> converter(new Converter(source, *sourceLayout, target, *targetLayout));
    if (converter->chain_ && !converter->chain_->rate().isUsable())
        return nullptr;
    return converter;
}

Converter::Converter(const AudioStreamBasicDescription& source, const PcmLayout& sourceLayout,
                     const AudioStreamBasicDescription& target, const PcmLayout& targetLayout)
    : source_(withByteCounts(source, sourceLayout)), target_(withByteCounts(target, targetLayout)),
      sourceLayout_(sourceLayout), targetLayout_(targetLayout),
      inputListMemory_(offsetof(AudioBufferList, mBuffers) + sourceLayout.planes() * sizeof(AudioBuffer)),
      inputList_(new (inputListMemory_.data()) AudioBufferList)
{
    pending_.planes.resize(sourceLayout.planes());
    pending_.planeFrameBytes = sourceLayout.planeFrameBytes();
    room_.planes.resize(targetLayout.planes());
    room_.planeFrameBytes = targetLayout.planeFrameBytes();
    if (source.mSampleRate != target.mSampleRate)
        chain_ = std::make_unique<RateChain>(sourceLayout, source.mSampleRate, targetLayout, target.mSampleRate);
    route(ChannelRoutes::between(sourceLayout.channels, targetLayout.channels));
}

void Converter::route(ChannelRoutes routes)
{
    if (chain_)
        chain_->route(routes);
    else
        straight_ = FrameConverter::between(sourceLayout_, targetLayout_, routes);
    routes_ = std::move(routes);
}

UInt64 Converter::outputFramesFor(UInt64 inputFrames) const
{
    return chain_ ? chain_->outputFramesFor(inputFrames) : inputFrames;
}

UInt64 Converter::inputFramesFor(UInt64 outputFrames) const
{
    return chain_ ? chain_->inputFramesFor(outputFrames) : outputFrames;
}

std::optional<UInt32> Converter::outputBytesFor(UInt32 inputBytes) const
{
    const UInt64 frames = (UInt64{inputBytes} + sourceFrameBytes() - 1) / sourceFrameBytes();
    const UInt64 bytes = outputFramesFor(frames) * targetFrameBytes();
    if (bytes > most32)
        return std::nullopt;
    return static_cast<UInt32>(bytes);
}

UInt32 Converter::inputBytesFor(UInt32 outputBytes) const
{
    const UInt64 frames = inputFramesFor(outputBytes / targetFrameBytes());
    return static_cast<UInt32>(std::min(frames, most32 / sourceFrameBytes()) * sourceFrameBytes());
}

void Converter::setQuality(UInt32 quality)
{
    quality_ = quality;
    if (chain_)
        chain_->rate().setQuality(quality);
}

std::span<const SInt32> Converter::channelMap() const
{
    const bool isMixed = routes_.isMean || !routes_.weights.empty();
    return isMixed ? std::span<const SInt32>() : routes_.inputOf;
}

bool Converter::setChannelMap(std::span<const SInt32> map)
{
    const auto isKnown = [this](SInt32 input) {
        return input >= ChannelRoutes::silence && input < static_cast<SInt32>(sourceLayout_.channels);
    };
    if (map.size() != targetLayout_.channels || !std::all_of(map.begin(), map.end(), isKnown))
        return false;
    ChannelRoutes routes = ChannelRoutes::identity(targetLayout_.channels);
    routes.inputs = sourceLayout_.channels;
    routes.inputOf.assign(map.begin(), map.end());
    route(std::move(routes));
    return true;
}

void Converter::setLayouts(std::span<const std::byte> input, std::span<const std::byte> output)
{
    const auto from = channelLabels(input), to = channelLabels(output);
    if (from.size() != sourceLayout_.channels || to.size() != targetLayout_.channels)
        return;
    if (auto routes = foldDown(from, to))
        route(std::move(*routes));
}

void Converter::reset()
{
    pending_.frames = 0;
    if (chain_)
        chain_->rate().restart();
}

OSStatus Converter::convertBuffer(std::span<const std::byte> input, std::byte* output, UInt32& outputBytes)
{
    if (input.size() % sourceFrameBytes() != 0)
        return kAudioConverterErr_InvalidInputSize;
    const std::size_t inputFrames = input.size() / sourceFrameBytes();
    const bool isDraining = inputFrames == 0;
    const UInt64 room = outputBytes / targetFrameBytes();
    if (room < (isDraining && chain_ ? 1 : outputFramesFor(inputFrames)))
        return kAudioConverterErr_InvalidOutputSize;

    if (chain_ && isDraining)
        chain_->rate().finish();
    else if (chain_ && chain_->rate().isFinished())
        chain_->rate().restart();

    const UInt64 allowed = isDraining ? room : outputFramesFor(inputFrames);
    aimAtBuffer(pending_, input.data(), inputFrames);
    aimAtBuffer(room_, output, allowed);
    const std::size_t made = produce(allowed);
    if (chain_)
        chain_->feedAll(pending_);
    closeGaps(output, targetLayout_, allowed, made);
    outputBytes = static_cast<UInt32>(made * targetFrameBytes());

    const bool isUsable = !chain_ || chain_->rate().isUsable();
    endStreamIfDrained(made < allowed);
    return isUsable ? noErr : kAudioConverterErr_UnspecifiedError;
}

OSStatus Converter::fill(const InputSource& input, UInt32& packetCount, AudioBufferList& output)
{
    aimAtList(room_, output);
    const std::size_t wanted = std::min<std::size_t>(packetCount, room_.frames);
    packetCount = 0; // always what was made, even if memory runs out meanwhile
    if (room_.frames == 0)
        return kAudioConverterErr_InvalidOutputSize;

    OSStatus status = noErr;
    std::size_t made = 0;
    while (true) {
        made += produce(wanted - made);
        packetCount = static_cast<UInt32>(made);
        if (made == wanted || (chain_ && chain_->rate().isFinished()))
            break;
        status = pull(input, wanted - made);
        if (status != noErr)
            break;
        if (pending_.frames == 0 && !chain_)
            break;
        if (pending_.frames == 0)
            chain_->rate().finish();
    }
    if (chain_ && !chain_->rate().isUsable())
        status = kAudioConverterErr_UnspecifiedError;
    endStreamIfDrained(made < wanted);

    for (AudioBuffer& buffer : buffersOf(output).first(targetLayout_.planes()))
        buffer.mDataByteSize = static_cast<UInt32>(made * room_.planeFrameBytes);
    return status;
}

std::size_t Converter::produce(std::size_t frames)
{
    if (chain_)
        return chain_->produce(pending_, room_, frames);
    const std::size_t length = std::min(frames, pending_.frames);
    if (length > 0)
        straight_->convert(pending_, room_, length);
    pending_.advance(length);
    room_.advance(length);
    return length;
}

void Converter::endStreamIfDrained(bool isShort)
{
    if (chain_ && isShort && chain_->rate().isFinished())
        chain_->rate().restart();
}

/// Requests the input of `outputFrames` output frames.
OSStatus Converter::pull(const InputSource& input, std::size_t outputFrames)
{
    auto packetCount = static_cast<UInt32>(std::min(inputFramesFor(outputFrames), most32));
    inputList_->mNumberBuffers = sourceLayout_.planes();
    for (AudioBuffer& buffer : buffersOf(*inputList_))
        buffer = {sourceLayout_.channelsPerPlane(), 0, nullptr};
    const OSStatus status = input.give(input.converter, &packetCount, inputList_, nullptr, input.userData);
    if (status == noErr)
        receive(packetCount);
    return status;
}

/// Keeps what the input list holds, by reference: at most the packets that were promised, and no byte beyond its
/// buffers.
void Converter::receive(UInt32 packetCount)
{
    inputList_->mNumberBuffers = std::min(inputList_->mNumberBuffers, sourceLayout_.planes());
    aimAtList(pending_, *inputList_);
    pending_.frames = std::min<std::size_t>(pending_.frames, packetCount);
}

} // namespace qmx
