// SPDX-License-Identifier: MIT
// A build without a library of codings: it has none of them, nor the files that hold nothing else.
#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Containers/Libav/LibavContainer.h"

namespace qmx
{

std::unique_ptr<PacketDecoder> PacketDecoder::forFormat(const AudioStreamBasicDescription&)
{
    return nullptr;
}

std::unique_ptr<PacketEncoder> PacketEncoder::forFormat(const AudioStreamBasicDescription&, UInt32)
{
    return nullptr;
}

std::span<const ContainerKind> libavKinds()
{
    return {};
}

std::vector<AudioFormatID> decodableCodings()
{
    return {};
}

std::vector<AudioFormatID> encodableCodings()
{
    return {};
}

} // namespace qmx
