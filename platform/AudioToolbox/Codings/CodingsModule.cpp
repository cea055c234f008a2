// SPDX-License-Identifier: MIT
#include "AudioToolbox/Codings/CodingsModule.h"

#if !defined(QMX_WITH_FFMPEG)

const qmx::CodingsModule* qmx::CodingsModule::find()
{
    return nullptr;
}

#elif defined(QMX_STATIC)

extern "C" const qmx::CodingsModule qmxCodings;

const qmx::CodingsModule* qmx::CodingsModule::find()
{
    return &qmxCodings;
}

#else

const qmx::CodingsModule* qmx::CodingsModule::find()
{
    static auto* const loader =
        new ModuleLoader({"codings.so", "qmxCodings", "the module of compressed codings", "libqmxcoreaudio-codings"});
    const ModuleHead* const table = loader->table();
    if (!table)
        noteMissingModule(*loader);
    return static_cast<const CodingsModule*>(table);
}

#endif
