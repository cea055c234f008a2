// SPDX-License-Identifier: MIT
#include "Devices/QMXVUMeterData.h"

#include "Devices/QMXVUMeterDataProvider.h"
#include "vecLib/vecLib.h"

#include <algorithm>
#include <atomic>

std::shared_ptr<QMXVUMeterData> QMXVUMeterData::init()
{
    return std::shared_ptr<QMXVUMeterData>(new QMXVUMeterData);
}

std::shared_ptr<QMXVUMeterData> QMXVUMeterData::initWithData_length(const Float32* levels, unsigned long count)
{
    auto object = init();
    if (levels)
        object->setData_length(levels, count);
    return object;
}

std::shared_ptr<QMXVUMeterData> QMXVUMeterData::initWithData_length_scaler(const Float32* levels, unsigned long count,
                                                                           Float32 scaler)
{
    auto object = initWithData_length(levels, count);
    if (levels)
        object->scaler_ = scaler;
    return object;
}

void QMXVUMeterData::setData_length(const Float32* levels, unsigned long count)
{
    vadd(_zerodata.data(), 1, levels, 1, _data.data(), 1,
         static_cast<UInt32>(std::min<unsigned long>(count, maximumChannels)));
}

Float32 QMXVUMeterData::floatValueForChannel(unsigned long channel) const
{
    if (channel < 1 || channel > maximumChannels)
        return 0;
    return std::atomic_ref(_data[channel - 1]).load(std::memory_order_relaxed);
}

std::string QMXVUMeterData::name() const
{
    return QMXVUMeterDataProviderNewDataIsAvailableNotification;
}

void QMXVUMeterData::publishLevels(const Float32* levels, UInt32 count) noexcept
{
    for (UInt32 i = 0; i < std::min(count, maximumChannels); ++i)
        std::atomic_ref(_data[i]).store(levels[i], std::memory_order_relaxed);
}
