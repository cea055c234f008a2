// SPDX-License-Identifier: MIT
#include "Devices/QMXVUMeterData.h"

#include "Devices/QMXVUMeterDataProvider.h"
#include "vecLib/vecLib.h"

#include <algorithm>
#include <array>
#include <atomic>

class QMXVUMeterData::Implementation final : public QMXVUMeterData
{
public:
    explicit Implementation(Float32 scaler) : scaler_(scaler) {}

    Float32* data() override { return _data.data(); }
    Float32 scaler() const override { return scaler_; }

    void setData_length(const Float32* levels, unsigned long count) override
    {
        vadd(_zerodata.data(), 1, levels, 1, _data.data(), 1,
             static_cast<UInt32>(std::min<unsigned long>(count, maximumChannels)));
    }

    Float32 floatValueForChannel(unsigned long channel) const override
    {
        if (channel < 1 || channel > maximumChannels)
            return 0;
        return std::atomic_ref(_data[channel - 1]).load(std::memory_order_relaxed);
    }

    void publishLevels(const Float32* levels, UInt32 count) noexcept override
    {
        for (UInt32 i = 0; i < std::min(count, maximumChannels); ++i)
            std::atomic_ref(_data[i]).store(levels[i], std::memory_order_relaxed);
    }

private:
    alignas(32) mutable std::array<Float32, maximumChannels> _data{};
    std::array<Float32, maximumChannels> _zerodata{};
    Float32 scaler_;
    [[maybe_unused]] UInt32 _length = 0; // never set, as intended
};

std::shared_ptr<QMXVUMeterData> QMXVUMeterData::init()
{
    return initWithData_length_scaler(nullptr, 0, 0);
}

std::shared_ptr<QMXVUMeterData> QMXVUMeterData::initWithData_length(const Float32* levels, unsigned long count)
{
    return initWithData_length_scaler(levels, count, 0);
}

std::shared_ptr<QMXVUMeterData> QMXVUMeterData::initWithData_length_scaler(const Float32* levels, unsigned long count,
                                                                           Float32 scaler)
{
    auto object = std::make_shared<Implementation>(levels ? scaler : 0);
    if (levels)
        object->setData_length(levels, count);
    return object;
}

std::string QMXVUMeterData::name() const
{
    return QMXVUMeterDataProviderNewDataIsAvailableNotification;
}
