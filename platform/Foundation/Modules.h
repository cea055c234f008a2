// SPDX-License-Identifier: MIT
// A shared library leaves to modules what needs other large libraries: the compressed codings and their files (module
// `codings`, package libqmxcoreaudio-codings), and the devices of the sound server (module `pipewire`, package
// libqmxcoreaudio-pipewire). It loads a module when something first needs it. Without the module that one thing is
// refused, one log line says why, and everything else works. A static library contains what the modules have.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <string>

namespace qmx
{

/// The folder of the modules, instead of the one in the environment variable QMX_MODULE_PATH or, without that, the
/// folder next to the library that is named after its version (`qmxcoreaudio-0.1`). An empty text restores that.
/// Modules that were loaded stay loaded. A relative path starts at the folder that is current when a module is loaded.
/// Any thread but the real-time ones.
QMX_EXPORT void setModulePath(std::string folder);

/// Why the last call of this thread that opens or makes a file, or makes a converter, had to do without a module: what
/// is missing, the package that has it, the file that was looked for and the system's reason. Empty if the call lacked
/// none. Any thread but the real-time ones.
QMX_EXPORT std::string missingModule();

} // namespace qmx
