// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/RateStage.h"

#include <algorithm>

namespace qmx
{
namespace
{

/// Maximum frames that one call of the rate conversion makes.
constexpr std::size_t blockFrames = 512;

PcmLayout floats(UInt32 channels)
{
    return {{.coding = SampleCoding::floating, .bytes = 4, .bits = 32}, channels, true};
}

} // namespace

RateStage::RateStage(const PcmLayout& from, const PcmLayout& to, const Way& way, UInt32 maximumFrames)
    : middle_(floats(std::min(from.channels, to.channels))), ratio_(way.ratios.highest),
      rate_(middle_.channels, way.quality, way.ratios), in_(std::size_t{maximumFrames} * middle_.channels),
      out_(blockFrames * middle_.channels), toRead_{{reinterpret_cast<const std::byte*>(out_.data())},
                                                    middle_.planeFrameBytes(),
                                                    blockFrames},
      toWrite_{{reinterpret_cast<std::byte*>(in_.data())}, middle_.planeFrameBytes(), maximumFrames}
{
    const ChannelRoutes unchanged = ChannelRoutes::identity(middle_.channels);
    const bool mixesFirst = from.channels > to.channels;
    toRate_ = FrameConverter::between(from, middle_, mixesFirst ? way.routes : unchanged);
    fromRate_ = FrameConverter::between(middle_, to, mixesFirst ? unchanged : way.routes);
}

void RateStage::feed(const SourceFrames& source, std::size_t frames)
{
    toRate_->convert(source, toWrite_, frames);
    used_ = 0;
    ready_ = frames;
}

void RateStage::feedSilence(std::size_t frames)
{
    std::fill_n(in_.begin(), frames * middle_.channels, 0.0F);
    used_ = 0;
    ready_ = frames;
}

std::size_t RateStage::produce(TargetFrames& target, std::size_t frames)
{
    std::size_t made = 0;
    while (made < frames) {
        const auto progress = rate_.process(in_.data() + used_ * middle_.channels, ready_, out_.data(),
                                            std::min(frames - made, blockFrames), ratio_);
        used_ += progress.taken;
        ready_ -= progress.taken;
        if (progress.made == 0)
            break;
        fromRate_->convert(toRead_, target, progress.made);
        target.advance(progress.made);
        made += progress.made;
    }
    return made;
}

void RateStage::restart()
{
    rate_.restart();
    ready_ = 0;
}

} // namespace qmx
