// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/PacketContainer.h"

#include <span>
#include <vector>

namespace qmx
{

/// The layout of an MPEG-4 file that can be read while it is written. Its first page holds a movie without packets.
/// Fragments follow: each is a page that describes packets, then the packets. The data of the last fragment extend to
/// the end of the file, so that no reader takes what a killed writer left there for an atom. A page is written in one
/// piece after its packets, so that the file is whole after every write.
class MPEG4Fragments
{
public:
    /// Writes what comes before the packets: the file type at the start of `ordinary`, the movie that follows it in
    /// `empty`, and a fragment without packets. `endOfData` becomes the place of the first packet.
    [[nodiscard]] OSStatus begin(ContainerFile& file, std::span<const UInt8> ordinary, std::span<const UInt8> empty,
                                 UInt32 priming, UInt64& endOfData);

    /// The number of packets that one `append` takes; at least one.
    std::size_t room(UInt64 endOfData) const;
    /// Writes packets and moves `endOfData` after them. Their `places` in `block` become those in the file. On failure
    /// the file is as before.
    [[nodiscard]] OSStatus append(ContainerFile& file, std::span<const UInt8> block, std::span<PacketPlace> places,
                                  UInt32 framesPerPacket, UInt64& endOfData);

    /// Turns everything before `endOfData` into the data of the movie that was written there. This is one write of 16
    /// bytes: a reader finds either the fragments or the movie.
    [[nodiscard]] OSStatus endAsMovie(ContainerFile& file, UInt64 endOfData) const;

private:
    struct Fragment {
        UInt64 start = 0, firstPacket = 0;
        UInt32 number = 1;
        std::vector<UInt32> sizes; ///< of its packets

        UInt64 dataStart() const;
        Bytes page(UInt32 framesPerPacket) const;
    };

    bool isFull(UInt64 endOfData) const;

    UInt64 movieStart_ = 0;
    Fragment current_;
};

} // namespace qmx
