// SPDX-License-Identifier: MIT
// The module of codings makes all of them; it is loaded only for what it may have.
#include "AudioToolbox/Codings/PacketCoding.h"

#include "AudioToolbox/Codings/CodingFacts.h"
#include "AudioToolbox/Codings/CodingsModule.h"

namespace qmx
{

std::unique_ptr<PacketDecoder> PacketDecoder::forFormat(const AudioStreamBasicDescription& source)
{
    const CodingsModule* const module = hasPackets(source.mFormatID) ? CodingsModule::find() : nullptr;
    return module ? module->decoder(source) : nullptr;
}

std::unique_ptr<PacketEncoder> PacketEncoder::forFormat(const AudioStreamBasicDescription& target, UInt32 sourceBits)
{
    const CodingsModule* const module = hasPackets(target.mFormatID) ? CodingsModule::find() : nullptr;
    return module ? module->encoder(target, sourceBits) : nullptr;
}

std::vector<AudioFormatID> decodableCodings()
{
    const CodingsModule* const module = CodingsModule::find();
    return module ? module->decodable() : std::vector<AudioFormatID>();
}

std::vector<AudioFormatID> encodableCodings()
{
    const CodingsModule* const module = CodingsModule::find();
    return module ? module->encodable() : std::vector<AudioFormatID>();
}

} // namespace qmx
