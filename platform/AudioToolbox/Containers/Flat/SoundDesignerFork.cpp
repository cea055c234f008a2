// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/Flat/SoundDesignerFork.h"

#include "CoreAudioTypes/FourCharCode.h"
#include "Foundation/Text/Format.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace qmx
{
namespace
{

constexpr UInt32 doubleMark = 0x00051607, doubleVersion = 0x00020000;
constexpr UInt32 finderEntry = 9, forkEntry = 2;
constexpr UInt32 finderBytes = 32;
constexpr FourCharCode textType = fourCharCode("STR ");
constexpr FourCharCode fileType = fourCharCode("Sd2f"), fileCreator = fourCharCode("Sd2a");
constexpr UInt16 sampleSizeID = 1000, sampleRateID = 1001, channelsID = 1002;
constexpr UInt32 forkDataStart = 256; // after the header and the room for the system

using Span = std::span<const UInt8>;

/// Empty if it does not lie inside.
Span part(Span bytes, std::size_t offset, std::size_t count)
{
    return offset <= bytes.size() && count <= bytes.size() - offset ? bytes.subspan(offset, count) : Span();
}

UInt32 field(Span bytes, std::size_t offset, std::size_t width)
{
    const Span found = part(bytes, offset, width);
    return found.empty() ? 0 : static_cast<UInt32>(loadInteger(found.data(), width, ByteOrder::big));
}

Span forkOf(Span bytes)
{
    if (field(bytes, 0, 4) != doubleMark)
        return bytes;
    const UInt32 count = std::min(field(bytes, 24, 2), 64U);
    for (std::size_t entry = 0; entry < count; ++entry)
        if (const std::size_t at = 26 + entry * 12; field(bytes, at, 4) == forkEntry)
            return part(bytes, field(bytes, at + 4, 4), field(bytes, at + 8, 4));
    return {};
}

/// The text of the resource `id`; empty if it is missing.
std::string textResource(Span fork, UInt16 id)
{
    const Span data = part(fork, field(fork, 0, 4), field(fork, 8, 4));
    const Span map = part(fork, field(fork, 4, 4), field(fork, 12, 4));
    const Span types = map.size() > 30 ? map.subspan(std::min<std::size_t>(map.size(), field(map, 24, 2))) : Span();
    const UInt32 typeCount = types.empty() ? 0 : (field(types, 0, 2) + 1) & 0xFFFF;
    for (std::size_t type = 0; type < typeCount && 2 + type * 8 < types.size(); ++type) {
        const std::size_t at = 2 + type * 8;
        if (field(types, at, 4) != textType)
            continue;
        const UInt32 count = (field(types, at + 4, 2) + 1) & 0xFFFF;
        const std::size_t references = field(types, at + 6, 2);
        for (std::size_t i = 0; i < count && references + i * 12 < types.size(); ++i) {
            const std::size_t reference = references + i * 12;
            if (field(types, reference, 2) != id)
                continue;
            const std::size_t item = field(types, reference + 5, 3);
            const Span text = part(data, item + 5, std::min(field(data, item + 4, 1), field(data, item, 4)));
            return {text.begin(), text.end()};
        }
    }
    return {};
}

// whatever the program's language, a point separates the decimals
Float64 numberIn(const std::string& text)
{
    Float64 number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

UInt32 countIn(const std::string& text)
{
    const Float64 number = numberIn(text);
    return number >= 1 && number <= 1024 ? static_cast<UInt32>(number) : 0;
}

Bytes resourceFork(const SoundDesignerFormat& format)
{
    const std::pair<UInt16, std::string> resources[] = {{sampleSizeID, std::to_string(format.sampleBytes)},
                                                        {sampleRateID, qmx::format("%.6f", format.sampleRate)},
                                                        {channelsID, std::to_string(format.channels)}};
    ByteWriter data(ByteOrder::big), references(ByteOrder::big);
    for (const auto& [id, text] : resources) {
        references.u16(id).u16(0xFFFF).integer(data.bytes().size(), 4, ByteOrder::big).u32(0);
        data.u32(static_cast<UInt32>(text.size() + 1)).integer(text.size(), 1, ByteOrder::big).append(text);
    }
    ByteWriter map(ByteOrder::big);
    map.zeros(24).u16(28).u16(static_cast<UInt16>(28 + 10 + references.bytes().size()));
    map.u16(0).code(textType).u16(static_cast<UInt16>(std::size(resources) - 1)).u16(10).append(references.bytes());
    const auto dataBytes = static_cast<UInt32>(data.bytes().size()), mapBytes = static_cast<UInt32>(map.bytes().size());
    return ByteWriter(ByteOrder::big)
        .u32(forkDataStart)
        .u32(forkDataStart + dataBytes)
        .u32(dataBytes)
        .u32(mapBytes)
        .zeros(forkDataStart - 16)
        .append(data.bytes())
        .append(map.bytes())
        .bytes();
}

} // namespace

std::optional<SoundDesignerFormat> parseSidecar(std::span<const UInt8> bytes)
{
    const Span fork = forkOf(bytes);
    SoundDesignerFormat format;
    format.sampleBytes = countIn(textResource(fork, sampleSizeID));
    format.sampleRate = numberIn(textResource(fork, sampleRateID));
    format.channels = countIn(textResource(fork, channelsID));
    const bool isWhole =
        format.sampleBytes > 0 && format.sampleBytes <= 4 && format.sampleRate > 0 && format.channels > 0;
    return isWhole ? std::optional(format) : std::nullopt;
}

Bytes makeSidecar(const SoundDesignerFormat& format)
{
    const Bytes fork = resourceFork(format);
    constexpr UInt32 finderStart = 26 + 2 * 12;
    ByteWriter writer(ByteOrder::big);
    writer.u32(doubleMark).u32(doubleVersion).append(std::string_view("Mac OS X        ")).u16(2);
    writer.u32(finderEntry).u32(finderStart).u32(finderBytes);
    writer.u32(forkEntry).u32(finderStart + finderBytes).u32(static_cast<UInt32>(fork.size()));
    writer.code(fileType).code(fileCreator).zeros(finderBytes - 8).append(fork);
    return writer.bytes();
}

} // namespace qmx
