// SPDX-License-Identifier: MIT
#pragma once

#include "Foundation/Modules.h"

#include <atomic>
#include <mutex>

namespace qmx
{

/// A module as the library and its user know it.
struct ModuleNames {
    const char* file;    ///< without the folder
    const char* table;   ///< the one symbol of the module
    const char* subject; ///< what it is called in a sentence
    const char* package; ///< that has the file
};

/// What the table of each module starts with.
struct ModuleHead {
    const char* version; ///< of the library that the module belongs to; with another one the rest is not looked at
};

/// Finds the table of one module. Lasts as long as the process. Any thread; on a real-time thread it loads nothing.
class ModuleLoader
{
public:
    explicit ModuleLoader(const ModuleNames& names) : names_(names) {}
    ModuleLoader(const ModuleLoader&) = delete;
    ModuleLoader& operator=(const ModuleLoader&) = delete;

    /// Null if the module is missing. It is loaded once and never unloaded. A missing one is looked for at each call,
    /// so that it works once it is installed; only the first failure is logged.
    const ModuleHead* table();
    /// Why the last look found none; empty if one did.
    std::string failure();

private:
    const ModuleHead* look();

    const ModuleNames names_;
    std::atomic<const ModuleHead*> table_{nullptr};
    std::mutex mutex_;
    std::string failure_; // guarded by mutex_
};

/// Makes missingModule() say on this thread why the module is missing.
void noteMissingModule(ModuleLoader& loader);
/// Makes missingModule() empty on this thread.
void forgetMissingModule();

} // namespace qmx
