// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/FrameConverter.h"

#include "AudioToolbox/Conversion/SampleKernels.h"

#include <algorithm>
#include <cstring>

namespace qmx
{
namespace
{

/// Samples that pass through scratch memory at once; both blocks stay in the first-level cache.
constexpr std::size_t blockSamples = 2048;

/// Samples of one layout as samples of another when every sample stays in its place: a copy, a swap of bytes, one
/// kernel straight from memory to memory, or two through a block.
template <class T> class SampleConverter
{
public:
    SampleConverter(const SampleFormat& source, const SampleFormat& target)
        : decoder_(source), encoder_(target), swap_(source.bytes), sourceBytes_(source.bytes),
          targetBytes_(target.bytes), way_(wayBetween(source, target)),
          block_(way_ == Way::throughBlock ? blockSamples : 0)
    {
    }

    void operator()(const std::byte* in, std::byte* out, std::size_t count)
    {
        switch (way_) {
        case Way::copy:
            std::memmove(out, in, count * sourceBytes_);
            break;
        case Way::swap:
            swap_(in, out, count);
            break;
        case Way::decode:
            decoder_(in, out, count);
            break;
        case Way::encode:
            encoder_(in, out, count);
            break;
        case Way::throughBlock:
            convertThroughBlock(in, out, count);
            break;
        }
    }

private:
    enum class Way { copy, swap, decode, encode, throughBlock };

    static Way wayBetween(const SampleFormat& source, const SampleFormat& target)
    {
        if (source == target)
            return Way::copy;
        if (isSwapOf(source, target))
            return Way::swap;
        if (isNative<T>(target))
            return Way::decode;
        return isNative<T>(source) ? Way::encode : Way::throughBlock;
    }

    static bool isSwapOf(SampleFormat source, const SampleFormat& target)
    {
        source.isSwapped = !source.isSwapped;
        return source == target;
    }

    void convertThroughBlock(const std::byte* in, std::byte* out, std::size_t count)
    {
        auto* const block = reinterpret_cast<std::byte*>(block_.data());
        while (count > 0) {
            const std::size_t length = std::min(count, block_.size());
            decoder_(in, block, length);
            encoder_(block, out, length);
            in += length * sourceBytes_;
            out += length * targetBytes_;
            count -= length;
        }
    }

    SampleDecoder<T> decoder_;
    SampleEncoder<T> encoder_;
    SampleSwapper swap_;
    UInt32 sourceBytes_, targetBytes_;
    Way way_;
    std::vector<T> block_;
};

/// Every sample stays in its place.
template <class T> class PlainFrameConverter : public FrameConverter
{
public:
    PlainFrameConverter(const PcmLayout& source, const PcmLayout& target)
        : convertSamples_(source.sample, target.sample), channelsPerPlane_(source.channelsPerPlane())
    {
    }

    void convert(const SourceFrames& source, const TargetFrames& target, std::size_t frames) override
    {
        for (std::size_t plane = 0; plane < source.planes.size(); ++plane)
            convertSamples_(source.planes[plane], target.planes[plane], frames * channelsPerPlane_);
    }

private:
    SampleConverter<T> convertSamples_;
    std::size_t channelsPerPlane_;
};

/// Samples change places: decoded into one block, carried into a second one, encoded from there.
template <class T> class MixingFrameConverter : public FrameConverter
{
public:
    MixingFrameConverter(const PcmLayout& source, const PcmLayout& target, const ChannelRoutes& routes)
        : source_(source), target_(target), decoder_(source.sample), encoder_(target.sample),
          mixer_(routes, source.isInterleaved, target.isInterleaved),
          blockFrames_(std::max<std::size_t>(16, blockSamples / std::max(source.channels, target.channels))),
          decoded_(blockFrames_ * source.channels), mixed_(blockFrames_ * target.channels)
    {
    }

    void convert(const SourceFrames& source, const TargetFrames& target, std::size_t frames) override
    {
        for (std::size_t done = 0; done < frames; done += blockFrames_) {
            const std::size_t length = std::min(blockFrames_, frames - done);
            const std::size_t sourceRun = length * source_.channelsPerPlane();
            for (std::size_t plane = 0; plane < source.planes.size(); ++plane)
                decoder_(source.planes[plane] + done * source_.planeFrameBytes(),
                         reinterpret_cast<std::byte*>(decoded_.data() + plane * sourceRun), sourceRun);
            mixer_(decoded_.data(), mixed_.data(), length);
            const std::size_t targetRun = length * target_.channelsPerPlane();
            for (std::size_t plane = 0; plane < target.planes.size(); ++plane)
                encoder_(reinterpret_cast<const std::byte*>(mixed_.data() + plane * targetRun),
                         target.planes[plane] + done * target_.planeFrameBytes(), targetRun);
        }
    }

private:
    PcmLayout source_, target_;
    SampleDecoder<T> decoder_;
    SampleEncoder<T> encoder_;
    ChannelMixer<T> mixer_;
    std::size_t blockFrames_;
    std::vector<T> decoded_, mixed_;
};

bool keepsPlaces(const PcmLayout& source, const PcmLayout& target, const ChannelRoutes& routes)
{
    return routes.isIdentity() && source.isInterleaved == target.isInterleaved;
}

template <class T>
std::unique_ptr<FrameConverter> makeConverter(const PcmLayout& source, const PcmLayout& target,
                                              const ChannelRoutes& routes)
{
    if (keepsPlaces(source, target, routes))
        return std::make_unique<PlainFrameConverter<T>>(source, target);
    return std::make_unique<MixingFrameConverter<T>>(source, target, routes);
}

bool needsDouble(const SampleFormat& format)
{
    return format.bits > (format.coding == SampleCoding::floating ? 32 : 24);
}

} // namespace

std::unique_ptr<FrameConverter> FrameConverter::between(const PcmLayout& source, const PcmLayout& target,
                                                        const ChannelRoutes& routes)
{
    // the narrowest numbers that hold every value of both sides
    const bool isFloating =
        source.sample.coding == SampleCoding::floating || target.sample.coding == SampleCoding::floating;
    if (!isFloating)
        return makeConverter<SInt32>(source, target, routes);
    if (keepsPlaces(source, target, routes) && isNative<Float32>(target.sample)) // rounded once, as from wider numbers
        return makeConverter<Float32>(source, target, routes);
    if (needsDouble(source.sample) || needsDouble(target.sample))
        return makeConverter<Float64>(source, target, routes);
    return makeConverter<Float32>(source, target, routes);
}

} // namespace qmx
