// SPDX-License-Identifier: MIT
#include "Tracks/CrossingBlocks.h"

#include "AudioToolbox/AudioConverter.h"
#include "FileRelated/QMXAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Processing/QMXAudioConverter.h"
#include "Tracks/DefinerRun.h"
#include "Tracks/QMXAudioTrackAutoDefiner.h"

#include <algorithm>
#include <bit>

namespace qmx
{
namespace
{

constexpr int blocksPerSecond = 5;

std::shared_ptr<QMXAudioStreamBasicDescription> analysisFormatFor(const QMXAudioFile& file)
{
    auto format = QMXAudioStreamBasicDescription::defaultStandardFileFormat();
    format->setSampleRate(file.sampleRate());
    format->setFormatFlags(kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked);
    return format;
}

UInt32 blockCountOf(QMXAudioFile& file)
{
    // Intended: the product wraps for files longer than 858,993,459 frames.
    const UInt32 fifths = file.lengthInFrames() * blocksPerSecond;
    return truncated<UInt32>(fifths / file.sampleRate() + 1.0);
}

bool isReadDirectly(const QMXAudioStreamBasicDescription& format)
{
    const UInt32 channels = format.channelsPerFrame();
    if (format.isFloat() || channels == 0 || format.bytesPerFrame() / channels != sizeof(SInt16))
        return false;
    return channels == 2 || !QMXAudioTrackAutoDefiner::convertsFilesOfOtherChannelCounts();
}

void reverseBytes(SInt16* samples, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = static_cast<SInt16>(__builtin_bswap16(static_cast<UInt16>(samples[i])));
}

} // namespace

CrossingBlocks::CrossingBlocks(QMXAudioFile& file)
    : file_(file), format_(analysisFormatFor(file)), frames_(truncated<UInt32>(file.sampleRate() / blocksPerSecond)),
      bytesPerBlock_(frames_ * format_->bytesPerFrame()),
      block_(zeroedHeapArray<SInt16>(bytesPerBlock_ / sizeof(SInt16)))
{
    if (frames_ > 0) // else not opened, or a sample rate below the blocks' rate
        count_ = blockCountOf(file);
    if (const OSStatus status = prepare(); status != noErr)
        definerRun::fail(status, file_, definerRun::cannotBeDivided);
    else
        remaining_ = file.lengthInBytes();
}

const AudioStreamBasicDescription& CrossingBlocks::format() const
{
    return *format_->audioStreamBasicDescription();
}

OSStatus CrossingBlocks::prepare()
{
    const auto& format = file_.fileStreamFormat();
    if (!file_.isOpen() || !format)
        return fnOpnErr;
    if (format->bytesPerFrame() == 0)
        return kAudioFileUnsupportedDataFormatError;
    if (isReadDirectly(*format)) {
        reversesBytes_ = format->isBigEndian() == (std::endian::native == std::endian::little);
        return noErr;
    }
    converter_ = QMXAudioConverter::initWithSourceFormat_destinationFormat(format, format_);
    if (!converter_)
        return kAudioFileUnsupportedDataFormatError;
    inputSize_ = converter_->calculateInputBufferSize(bytesPerBlock_);
    input_ = zeroedHeapArray<Byte>(inputSize_);
    return input_ ? noErr : memFullErr;
}

bool CrossingBlocks::readInto(void* buffer, UInt32& size)
{
    const bool succeeds = file_.read_length(buffer, &size);
    const bool ends = !succeeds || size == 0;
    if (ends)
        definerRun::fail(file_.lastStatus() != noErr ? file_.lastStatus() : ioErr, file_, "cannot be read to its end");
    remaining_ = ends ? 0 : remaining_ - std::min<UInt64>(remaining_, size);
    return succeeds;
}

UInt32 CrossingBlocks::readDirectly()
{
    UInt32 size = bytesPerBlock_;
    if (!readInto(block_.get(), size))
        return bytesPerBlock_;
    if (reversesBytes_)
        reverseBytes(block_.get(), size / sizeof(SInt16)); // only what just came: the rest is in host order already
    return size;
}

UInt32 CrossingBlocks::readConverted()
{
    UInt32 size = inputSize_;
    if (!readInto(input_.get(), size))
        return bytesPerBlock_;
    UInt32 produced = bytesPerBlock_;
    const OSStatus status = converter_->convertBuffer_inputBufferSize_outputBuffer_outputBufferSize(
        input_.get(), size, block_.get(), &produced);
    if (status != noErr)
        definerRun::fail(status, file_, definerRun::cannotBeDivided);
    return std::min(produced, bytesPerBlock_);
}

} // namespace qmx
