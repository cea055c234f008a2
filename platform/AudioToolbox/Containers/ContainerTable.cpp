// SPDX-License-Identifier: MIT
#include "AudioToolbox/Containers/ContainerTable.h"

#include "AudioToolbox/Codings/CodingsModule.h"
#include "AudioToolbox/Containers/Chunks/AIFFContainer.h"
#include "AudioToolbox/Containers/Chunks/CAFContainer.h"
#include "AudioToolbox/Containers/Chunks/WAVEContainer.h"
#include "AudioToolbox/Containers/CodedKinds.h"
#include "AudioToolbox/Containers/Flat/NeXTContainer.h"
#include "AudioToolbox/Containers/Flat/SoundDesignerContainer.h"

#include <algorithm>
#include <array>

namespace qmx
{
namespace
{

constexpr std::array kinds{&aiffKind, &aifcKind, &waveKind, &cafKind, &nextKind, &soundDesignerKind};

template <class Predicate> const ContainerKind* find(Predicate predicate)
{
    for (const ContainerKind* const kind : kinds)
        if (predicate(*kind))
            return kind;
    const auto found = std::ranges::find_if(codedKinds(), predicate);
    return found != codedKinds().end() && CodingsModule::find() ? &*found : nullptr;
}

} // namespace

const ContainerKind* kindForContents(FileSigns signs)
{
    const auto matches = [&signs](const ContainerKind& kind) { return kind.matches(signs); };
    signs.mustBeSure = true;
    if (const ContainerKind* const kind = find(matches))
        return kind;
    signs.mustBeSure = false;
    return find(matches);
}

const ContainerKind* kindForType(AudioFileTypeID type)
{
    return find([&](const ContainerKind& kind) { return kind.type == type; });
}

} // namespace qmx
