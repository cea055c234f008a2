// SPDX-License-Identifier: MIT
// The module of the sound server's devices, made with libpipewire.
#include "CoreAudio/HAL/PipeWireModule.h"

#include "CoreAudio/HAL/PipeWire/PipeWireBackend.h"

namespace
{

qmx::Backend& backend()
{
    return qmx::pipewire::PipeWireBackend::shared();
}

} // namespace

extern "C" QMX_EXPORT const qmx::PipeWireModule qmxPipeWire;
const qmx::PipeWireModule qmxPipeWire{{QMX_VERSION}, backend};
