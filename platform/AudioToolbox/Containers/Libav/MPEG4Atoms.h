// SPDX-License-Identifier: MIT
#pragma once

#include "AudioToolbox/Containers/ContainerFile.h"

#include <map>
#include <optional>

namespace qmx
{

/// Makes up for two faults of libavformat with an MPEG-4 file: it trusts the counts in the tables of packets (a file of
/// 582 bytes made it take 1.4 GB), and it reports the length of an edit only rounded up to the movie's time.
class MPEG4Atoms
{
public:
    /// What is played of a track.
    struct Edit {
        UInt64 start = 0;    ///< in the track's time
        UInt64 duration = 0; ///< in the movie's time; 0: to the end
    };

    /// Examines all but the sound itself. 'dta?' for tables that claim more than the file can hold.
    OSStatus read(ContainerFile& file);

    /// Where the file ends, or the description of a last fragment begins that is not wholly there.
    UInt64 end() const { return end_; }
    bool isFragmented() const { return isFragmented_; }
    UInt32 movieScale() const { return movieScale_; } ///< ticks a second
    /// The first edit that plays something; empty ones before it only delay it.
    std::optional<Edit> editOf(UInt32 track) const;

private:
    OSStatus readAtoms(std::span<const UInt8> atoms, int depth);
    OSStatus readFact(FourCharCode type, std::span<const UInt8> contents);
    OSStatus readDescriptions(std::span<const UInt8> descriptions);
    void readEdit(std::span<const UInt8> table);

    bool isFragmented_ = false;
    UInt64 end_ = 0;
    UInt64 largestCount_ = 0; ///< maximum number of entries in a table
    UInt32 movieScale_ = 0;
    UInt32 track_ = 0; ///< the one whose description was seen last
    std::map<UInt32, Edit> edits_;
};

} // namespace qmx
