// SPDX-License-Identifier: MIT
#include "AudioUnit/Components.h"

#include "AudioUnit/Units/UnitInstance.h"
#include "AudioUnit/Units/UnitTable.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

#include <mutex>
#include <vector>

namespace
{

bool matches(OSType wanted, OSType code)
{
    return wanted == 0 || wanted == code;
}

bool matches(const ComponentDescription& wanted, const ComponentDescription& component)
{
    return matches(wanted.componentType, component.componentType) &&
           matches(wanted.componentSubType, component.componentSubType) &&
           matches(wanted.componentManufacturer, component.componentManufacturer) &&
           ((wanted.componentFlags ^ component.componentFlags) & wanted.componentFlagsMask) == 0;
}

/// Instances that were closed while one of their own callbacks may still be on its way out.
class ClosedInstances
{
public:
    void add(std::unique_ptr<OpaqueComponentInstance> instance)
    {
        const std::scoped_lock lock(mutex_);
        waiting_.push_back(std::move(instance));
    }

    void free()
    {
        std::vector<std::unique_ptr<OpaqueComponentInstance>> toFree;
        if (qmx::isInsideCallback())
            return;
        {
            const std::scoped_lock lock(mutex_);
            toFree.swap(waiting_);
        }
        for (const auto& instance : toFree)
            instance->unit->close();
    }

    static ClosedInstances& shared()
    {
        static auto* const instances = new ClosedInstances; // never destroyed: threads may close units at exit
        return *instances;
    }

private:
    std::mutex mutex_;
    std::vector<std::unique_ptr<OpaqueComponentInstance>> waiting_;
};

} // namespace

Component FindNextComponent(Component after, const ComponentDescription* looking)
{
    const auto units = qmx::unitTable();
    if (!looking)
        return nullptr;
    for (const auto* entry = after ? after + 1 : units.data(); entry != units.data() + units.size(); ++entry)
        if (matches(*looking, entry->description))
            return entry;
    return nullptr;
}

UInt32 CountComponents(const ComponentDescription* looking)
{
    UInt32 count = 0;
    for (Component found = FindNextComponent(nullptr, looking); found; found = FindNextComponent(found, looking))
        ++count;
    return count;
}

OSErr GetComponentInfo(Component component, ComponentDescription* description)
{
    if (!component || !description)
        return paramErr;
    *description = component->description;
    return noErr;
}

OSErr OpenAComponent(Component component, ComponentInstance* instance)
{
    if (!instance)
        return paramErr;
    *instance = nullptr;
    if (!component)
        return paramErr;
    ClosedInstances::shared().free();
    if (!qmx::withinMemory([&] { *instance = new OpaqueComponentInstance{component, component->make()}; }))
        return memFullErr;
    (*instance)->unit->setHandle(*instance);
    return noErr;
}

ComponentInstance OpenComponent(Component component)
{
    ComponentInstance instance = nullptr;
    OpenAComponent(component, &instance);
    return instance;
}

OSErr CloseComponent(ComponentInstance instance)
{
    if (!instance)
        return paramErr;
    std::unique_ptr<OpaqueComponentInstance> owned(instance);
    owned->unit->close();
    if (qmx::isInsideCallback())
        ClosedInstances::shared().add(std::move(owned));
    ClosedInstances::shared().free();
    return noErr;
}
