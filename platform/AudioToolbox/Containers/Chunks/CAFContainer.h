// SPDX-License-Identifier: MIT
// Core Audio Format files: linear and companded samples by bytes, AAC and ALAC by packets.
#pragma once

#include "AudioToolbox/Containers/Chunks/ChunkReader.h"
#include "AudioToolbox/Containers/ContainerTable.h"

namespace qmx
{

extern const ContainerKind cafKind;

/// 64-bit chunks after a header of 8 bytes.
inline constexpr ChunkShape cafShape{8, 8, false};
inline constexpr std::size_t cafDescriptionBytes = 32;
inline constexpr std::size_t cafEditCountBytes = 4; // the data chunk starts with it

/// The header up to the first byte of audio. `dataBytes`: of audio; all ones for data to the end of the file.
Bytes cafHeader(const AudioStreamBasicDescription& format, AudioFormatFlags flags, UInt64 dataBytes);
/// The record of the description chunk, with the flags as stored.
AudioStreamBasicDescription cafDescription(std::span<const UInt8> data);
/// The layout whose tag is in a chunk of channels; 0 for others.
AudioChannelLayoutTag cafLayoutTag(std::span<const UInt8> data, UInt32 channels);

/// Files of packets.
OSStatus openCAFPackets(std::unique_ptr<File> file, std::unique_ptr<Container>& container);
OSStatus createCAFPackets(std::unique_ptr<File> file, const AudioStreamBasicDescription& format,
                          std::unique_ptr<Container>& container);

} // namespace qmx
