// SPDX-License-Identifier: MIT
// The description of the sound in an MPEG-4 file: read from one, and made for a new one.
#pragma once

#include "AudioToolbox/Containers/PacketContainer.h"

namespace qmx
{

struct MPEG4Movie {
    AudioStreamBasicDescription format;
    Bytes bare; ///< the coding's own parameters
    std::vector<PacketPlace> packets;
    UInt64 primingFrames = 0;
    UInt64 validFrames = 0;
};

/// Finds the first sound track. 'dta?' for a damaged file, 'fmt?' for one without sound or of a coding that is not known, 'typ?' for a movie in
/// fragments.
OSStatus readMovie(ContainerFile& file, MPEG4Movie& movie);

/// The atom that describes the packets, to be put behind them.
Bytes movieAtom(const MPEG4Movie& movie, std::span<const PacketPlace> packets);

} // namespace qmx
