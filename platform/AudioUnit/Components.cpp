// SPDX-License-Identifier: MIT
#include "AudioUnit/Components.h"

#include "AudioUnit/Units/OutputUnit.h"
#include "AudioUnit/Units/UnitInstance.h"
#include "AudioUnit/Units/UnitTable.h"
#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"

OpaqueComponentInstance::OpaqueComponentInstance(std::shared_ptr<qmx::Unit> made) : unit(std::move(made))
{
    unit->setHandle(this);
}

OpaqueComponentInstance::~OpaqueComponentInstance()
{
    unit->close();
}

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
    const bool isMade = qmx::withinMemory([&] { *instance = new OpaqueComponentInstance(component->make()); });
    return isMade ? noErr : memFullErr;
}

ComponentInstance OpenComponent(Component component)
{
    ComponentInstance instance = nullptr;
    (void)OpenAComponent(component, &instance); // null tells
    return instance;
}

OSErr CloseComponent(ComponentInstance instance)
{
    if (!instance)
        return paramErr;
    qmx::OutputUnit* const output = instance->unit->asOutput();
    if (output)
        output->stop();             // at once; the rest may wait for the cycle in flight
    if (!qmx::isInsideCallback()) { // the thread that destroys what callbacks give up waits for no listener
        instance->unit->listeners().clear();
        instance->unit->listeners().waitForCalls();
    }
    qmx::destroyOutsideCallbacks(instance);
    return noErr;
}
