// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>

/// Levels of up to 8 channels, linear (full scale 1.0). A meter keeps writing its levels into one object while others
/// read it: copy the values to keep them. Objects come from the factories only.
class QMX_EXPORT QMXVUMeterData : public qmx::Object
{
public:
    static constexpr UInt32 maximumChannels = 8;

    /// All levels, and the scaler, 0.0.
    static std::shared_ptr<QMXVUMeterData> init();
    /// With the first 8 of `count` levels; null leaves all at 0.0.
    static std::shared_ptr<QMXVUMeterData> initWithData_length(const Float32* levels, unsigned long count);
    /// The same with a scaler, which null levels leave at 0.0 too, as intended.
    static std::shared_ptr<QMXVUMeterData> initWithData_length_scaler(const Float32* levels, unsigned long count,
                                                                      Float32 scaler);

    /// The object's own 8 levels, which may be written. Not while a meter writes them on another thread.
    virtual Float32* data() = 0;
    /// Takes the first 8 of `count` levels; the others stay as they are. Not while a meter writes.
    virtual void setData_length(const Float32* levels, unsigned long count) = 0;
    /// The level of a channel, counted from 1; 0.0 if there is no such channel. Any thread.
    virtual Float32 floatValueForChannel(unsigned long channel) const = 0;
    /// A factor for drawing the levels; not applied to them.
    virtual Float32 scaler() const = 0;
    /// The notification that announces such levels.
    std::string name() const;

    /// Publishes new levels of the first `count` (at most 8) channels while others may read. Real-time threads.
    virtual void publishLevels(const Float32* levels, UInt32 count) noexcept = 0;

private:
    class Implementation;
    QMXVUMeterData() = default;
};
