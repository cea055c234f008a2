// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/ContainerTable.h"

#include "AudioToolbox/Codings/PacketCoding.h"
#include "AudioToolbox/Containers/ADTSContainer.h"
#include "AudioToolbox/Containers/AIFFContainer.h"
#include "AudioToolbox/Containers/CAFContainer.h"
#include "AudioToolbox/Containers/FLACContainer.h"
#include "AudioToolbox/Containers/MP3Container.h"
#include "AudioToolbox/Containers/MPEG4Container.h"
#include "AudioToolbox/Containers/NeXTContainer.h"
#include "AudioToolbox/Containers/SoundDesignerContainer.h"
#include "AudioToolbox/Containers/WAVEContainer.h"

#include <algorithm>
#include <array>

namespace qmx
{
namespace
{

constexpr std::array kinds{&aiffKind, &aifcKind, &waveKind, &cafKind, &nextKind, &soundDesignerKind};
// kinds of files that hold nothing but packets; not there without the codings
constexpr std::array packetKinds{&m4aKind, &mpeg4Kind, &flacKind, &adtsKind, &mp3Kind};

template <class Predicate> const ContainerKind* find(Predicate predicate)
{
    if (const auto found = std::ranges::find_if(kinds, predicate); found != kinds.end())
        return *found;
    const auto found = std::ranges::find_if(packetKinds, predicate);
    return found == packetKinds.end() || decodableCodings().empty() ? nullptr : *found;
}

} // namespace

const ContainerKind* kindForContents(const FileSigns& signs)
{
    return find([&](const ContainerKind* kind) { return kind->matches(signs); });
}

const ContainerKind* kindForType(AudioFileTypeID type)
{
    return find([&](const ContainerKind* kind) { return kind->type == type; });
}

} // namespace qmx
