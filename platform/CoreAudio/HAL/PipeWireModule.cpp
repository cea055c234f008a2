// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWireModule.h"

#if !defined(QMX_WITH_PIPEWIRE)

const qmx::PipeWireModule* qmx::PipeWireModule::find()
{
    return nullptr;
}

std::string qmx::PipeWireModule::failure()
{
    return {};
}

#elif defined(QMX_STATIC)

extern "C" const qmx::PipeWireModule qmxPipeWire;

const qmx::PipeWireModule* qmx::PipeWireModule::find()
{
    return &qmxPipeWire;
}

std::string qmx::PipeWireModule::failure()
{
    return {};
}

#else

namespace
{

qmx::ModuleLoader& loader()
{
    static auto* const made = new qmx::ModuleLoader(
        {"pipewire.so", "qmxPipeWire", "the module of the sound server's devices", "libqmxcoreaudio-pipewire"});
    return *made;
}

} // namespace

const qmx::PipeWireModule* qmx::PipeWireModule::find()
{
    return static_cast<const PipeWireModule*>(loader().table());
}

std::string qmx::PipeWireModule::failure()
{
    return loader().failure();
}

#endif
