// SPDX-License-Identifier: MIT
#include "AudioUnit/Units/UnitTable.h"

#include "AudioUnit/AudioUnit.h"
#include "AudioUnit/Units/ConverterUnit.h"
#include "AudioUnit/Units/OutputUnit.h"
#include "AudioUnit/Units/VarispeedUnit.h"

namespace qmx
{
namespace
{

template <class T> std::shared_ptr<Unit> make()
{
    return std::make_shared<T>();
}

template <bool hasInput> std::shared_ptr<Unit> makeOutput()
{
    return std::make_shared<OutputUnit>(hasInput);
}

constexpr OpaqueComponent units[] = {
    {{kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput, kAudioUnitManufacturer_Apple}, makeOutput<false>},
    {{kAudioUnitType_Output, kAudioUnitSubType_HALOutput, kAudioUnitManufacturer_Apple}, makeOutput<true>},
    {{kAudioUnitType_FormatConverter, kAudioUnitSubType_AUConverter, kAudioUnitManufacturer_Apple},
     make<ConverterUnit>},
    {{kAudioUnitType_FormatConverter, kAudioUnitSubType_Varispeed, kAudioUnitManufacturer_Apple}, make<VarispeedUnit>},
};

} // namespace

std::span<const OpaqueComponent> unitTable()
{
    return units;
}

} // namespace qmx
