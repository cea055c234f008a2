// SPDX-License-Identifier: MIT
#pragma once

#include "Formats/QMXAudioBufferList.h"

#include <memory>

namespace qmx
{

struct DestroyBufferList {
    void operator()(AudioBufferList* list) const { QMXAudioBufferList::destroyBuffers(list); }
};

/// A list of sample buffers that is destroyed with its owner.
using OwnedBufferList = std::unique_ptr<AudioBufferList, DestroyBufferList>;

} // namespace qmx
