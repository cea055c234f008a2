// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/ContainerTable.h"

#include "AudioToolbox/Containers/AIFFContainer.h"
#include "AudioToolbox/Containers/WAVEContainer.h"

#include <algorithm>
#include <array>

namespace qmx
{
namespace
{

constexpr std::array kinds{&aiffKind, &aifcKind, &waveKind};

template <class Predicate> const ContainerKind* find(Predicate predicate)
{
    const auto found = std::ranges::find_if(kinds, predicate);
    return found == kinds.end() ? nullptr : *found;
}

} // namespace

const ContainerKind* kindForContents(const UInt8* head)
{
    return find([&](const ContainerKind* kind) { return kind->matches(head); });
}

const ContainerKind* kindForType(AudioFileTypeID type)
{
    return find([&](const ContainerKind* kind) { return kind->type == type; });
}

} // namespace qmx
