// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Flat/NeXTContainer.h"

#include "AudioToolbox/Containers/Flat/FlatContainer.h"
#include "AudioToolbox/Containers/SampleLayout.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace qmx
{
namespace
{

using Coding = SampleLayout::Coding;

constexpr FourCharCode bigID = fourCharCode(".snd"), littleID = fourCharCode("dns.");
constexpr std::size_t fixedHeaderBytes = 24;
constexpr std::size_t writtenHeaderBytes = 32; // with some empty text, which old readers want
constexpr UInt32 unknownSize = std::numeric_limits<UInt32>::max();

struct Encoding {
    UInt32 number;
    Coding coding;
    UInt32 bits;
};

constexpr Encoding encodings[] = {
    {1, Coding::uLaw, 8},           {2, Coding::signedInteger, 8},  {3, Coding::signedInteger, 16},
    {4, Coding::signedInteger, 24}, {5, Coding::signedInteger, 32}, {6, Coding::floatingPoint, 32},
    {7, Coding::floatingPoint, 64}, {27, Coding::aLaw, 8},
};

/// Null for a format that such a file does not hold; it is written big-endian.
const Encoding* encodingFor(const AudioStreamBasicDescription& format)
{
    const auto layout = layoutOf(format);
    if (!layout || layout->bits != layout->bytes * 8 || (layout->order == ByteOrder::little && layout->bytes > 1) ||
        format.mSampleRate != std::floor(format.mSampleRate))
        return nullptr;
    const auto found = std::ranges::find_if(encodings, [&](const Encoding& encoding) {
        return encoding.coding == layout->coding && encoding.bits == layout->bits;
    });
    return found == std::end(encodings) ? nullptr : found;
}

class NeXTContainer : public FlatContainer
{
public:
    explicit NeXTContainer(std::unique_ptr<File> file) : FlatContainer(std::move(file)) {}

    AudioFileTypeID type() const override { return kAudioFileNextType; }

    /// Opening for writing brings a size that lags behind the file's length in line.
    OSStatus load(bool forWriting)
    {
        bool changed = false;
        if (const OSStatus status = file_.refreshLength(changed); status != noErr)
            return status;
        Bytes header(fixedHeaderBytes);
        if (const OSStatus status = file_.readAll(0, header); status != noErr)
            return status;
        order_ = load32(header.data(), ByteOrder::big) == littleID ? ByteOrder::little : ByteOrder::big;
        const auto field = [&](std::size_t index) { return load32(&header[index * 4], order_); };
        const UInt32 start = field(1), size = field(2), rate = field(4), channels = field(5);
        const auto encoding = std::ranges::find(encodings, field(3), &Encoding::number);
        if (start < fixedHeaderBytes || start > file_.length())
            return kAudioFileInvalidFileError;
        if (encoding == std::end(encodings) || !isPlausible(rate, channels))
            return kAudioFileUnsupportedDataFormatError;
        format_ = formatOf(
            {encoding->coding, encoding->bits == 8 ? ByteOrder::big : order_, encoding->bits, encoding->bits / 8}, rate,
            channels);
        // a size of 0 is what a killed writer leaves
        const bool isTold = size != unknownSize && (size != 0 || forWriting);
        setAudio(start, isTold ? size : std::numeric_limits<UInt64>::max());
        if (isTold && forWriting)
            takeRest();
        return noErr;
    }

    OSStatus create(const Bytes& header)
    {
        OSStatus status = file_.truncate(0);
        if (status == noErr)
            status = file_.writeAll(0, header);
        return status == noErr ? load(true) : status;
    }

protected:
    // a size beyond 32 bits is stored as the rest of the file
    OSStatus writeSize(UInt64 bytes) override
    {
        const auto size = static_cast<UInt32>(std::min<UInt64>(bytes, unknownSize));
        return file_.apply({{8, ByteWriter(order_).u32(size).bytes()}});
    }

private:
    ByteOrder order_ = ByteOrder::big;
};

bool matches(const FileSigns& signs)
{
    const FourCharCode code = load32(signs.head.data(), ByteOrder::big);
    return code == bigID || code == littleID;
}

OSStatus open(PlacedFile placed, bool forWriting, std::unique_ptr<Container>& container)
{
    auto loaded = std::make_unique<NeXTContainer>(std::move(placed.file));
    const OSStatus status = loaded->load(forWriting);
    if (status == noErr)
        container = std::move(loaded);
    return status;
}

bool holds(const AudioStreamBasicDescription& format)
{
    return encodingFor(format) != nullptr;
}

OSStatus create(PlacedFile placed, const AudioStreamBasicDescription& format, std::unique_ptr<Container>& container)
{
    const Bytes header = ByteWriter(ByteOrder::big)
                             .code(bigID)
                             .u32(writtenHeaderBytes)
                             .u32(0)
                             .u32(encodingFor(format)->number)
                             .u32(static_cast<UInt32>(format.mSampleRate))
                             .u32(format.mChannelsPerFrame)
                             .zeros(writtenHeaderBytes - fixedHeaderBytes)
                             .bytes();
    auto created = std::make_unique<NeXTContainer>(std::move(placed.file));
    const OSStatus status = created->create(header);
    if (status == noErr)
        container = std::move(created);
    return status;
}

} // namespace

const ContainerKind nextKind{kAudioFileNextType, matches, open, holds, create};

} // namespace qmx
