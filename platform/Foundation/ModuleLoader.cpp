// SPDX-License-Identifier: MIT
#include "Foundation/ModuleLoader.h"

#include "Foundation/RealTime.h"
#include "Foundation/Text/Log.h"
#include "Foundation/Version.h"

#include <dlfcn.h>

#include <climits>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace qmx
{
namespace
{

thread_local ModuleLoader* missing = nullptr; // of this thread's last call

struct ChosenFolder {
    std::mutex mutex;
    std::string path; // guarded by mutex
};

ChosenFolder& chosenFolder()
{
    static auto* const folder = new ChosenFolder; // never destroyed: threads may need a module while the process ends
    return *folder;
}

// The system keeps the place from which it loaded the library, also for one that was found by a relative path.
std::string folderOfLibrary()
{
    Dl_info library{};
    char folder[PATH_MAX] = "";
    if (dladdr(reinterpret_cast<const void*>(&folderOfLibrary), &library) == 0)
        return folder;
    void* const handle = dlopen(library.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    if (!handle)
        return folder;
    if (dlinfo(handle, RTLD_DI_ORIGIN, folder) != 0)
        folder[0] = 0;
    dlclose(handle); // the library stays: only this handle is returned
    return folder;
}

std::string moduleFolder()
{
    {
        ChosenFolder& chosen = chosenFolder();
        const std::scoped_lock lock(chosen.mutex);
        if (!chosen.path.empty())
            return chosen.path;
    }
    const char* const path = secure_getenv("QMX_MODULE_PATH");
    return path && *path ? path : folderOfLibrary() + "/" QMX_MODULE_FOLDER;
}

// The system's texts often start with the path.
std::string aboutFile(const std::string& path, const char* text)
{
    const std::string_view reason = text ? text : "unknown reason";
    return reason.starts_with(path) ? std::string(reason) : path + ": " + std::string(reason);
}

struct Found {
    const ModuleHead* table = nullptr;
    std::string failure; ///< if there is none
};

Found load(const ModuleNames& names)
{
    const std::string path = moduleFolder() + "/" + names.file;
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return {nullptr, aboutFile(path, dlerror())};
    const auto* const table = static_cast<const ModuleHead*>(dlsym(handle, names.table));
    if (!table)
        return {nullptr, aboutFile(path, dlerror())};
    if (std::string_view(table->version) != version())
        return {nullptr,
                format("%@: it belongs to version %s of the library, not to %s", path, table->version, version())};
    return {table, {}};
}

} // namespace

const ModuleHead* ModuleLoader::table()
{
    const ModuleHead* const known = table_.load(std::memory_order_acquire);
    return known || isRealTime() ? known : look();
}

// Two threads may look at once: the system loads a file once, and both find the same table.
const ModuleHead* ModuleLoader::look()
{
    Found found = load(names_);
    if (found.table)
        table_.store(found.table, std::memory_order_release);
    else
        found.failure = format("%s is missing (package %s): %@", names_.subject, names_.package, found.failure);
    bool isFirst = false;
    {
        const std::scoped_lock lock(mutex_);
        isFirst = failure_.empty();
        failure_ = found.failure;
    }
    if (isFirst && !found.table)
        Log("QMXCoreAudio: %@", found.failure);
    return found.table;
}

std::string ModuleLoader::failure()
{
    const std::scoped_lock lock(mutex_);
    return failure_;
}

void setModulePath(std::string folder)
{
    ChosenFolder& chosen = chosenFolder();
    const std::scoped_lock lock(chosen.mutex);
    chosen.path = std::move(folder);
}

std::string missingModule()
{
    return missing ? missing->failure() : "";
}

void noteMissingModule(ModuleLoader& loader)
{
    missing = &loader;
}

void forgetMissingModule()
{
    missing = nullptr;
}

} // namespace qmx
