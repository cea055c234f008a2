// SPDX-License-Identifier: MIT
// The module of codings: all that is made with the library of codings in use.
#pragma once

#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Containers/ContainerTable.h"
#include "Foundation/ModuleLoader.h"

#include <span>

namespace qmx
{

/// How the files of one type are opened and made; see ContainerKind.
struct CodedFiles {
    AudioFileTypeID type = 0;
    OSStatus (*open)(PlacedFile file, bool forWriting, std::unique_ptr<Container>& container) = nullptr;
    OSStatus (*create)(PlacedFile file, const AudioStreamBasicDescription& format,
                       std::unique_ptr<Container>& container) = nullptr;
};

/// The table of the module. The functions are those of PacketCoding.h.
struct CodingsModule : ModuleHead {
    std::unique_ptr<PacketDecoder> (*decoder)(const AudioStreamBasicDescription& source) = nullptr;
    std::unique_ptr<PacketEncoder> (*encoder)(const AudioStreamBasicDescription& target, UInt32 sourceBits) = nullptr;
    std::vector<AudioFormatID> (*decodable)() = nullptr;
    std::vector<AudioFormatID> (*encodable)() = nullptr;
    std::span<const CodedFiles> (*files)() = nullptr;

    /// Loads the module when it is first called. Null if the module is missing, or if the build has no codings.
    static const CodingsModule* find();
};

} // namespace qmx
