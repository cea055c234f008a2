// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/Units/OutputHardware.h"
#include "AudioUnit/Units/Unit.h"

namespace qmx
{

/// Plays what its input gives on a device. Until it is started it needs none: formats, callbacks and initialising work without,
/// and so does AudioUnitRender, which delivers the input in the output's format at the caller's pace. Without a device the
/// output side mirrors the client side, and the device's nominal rate is the client format's.
///
/// Behind a callback the client's rate is converted to the device's; behind another unit frames are taken one for one.
class QMX_EXPORT OutputUnit : public Unit, private OutputClient
{
public:
    /// Without hardware, starting answers kAudioHardwareBadDeviceError.
    explicit OutputUnit(std::unique_ptr<OutputHardware> hardware = nullptr);

    OutputUnit* asOutput() override { return this; }
    OSStatus uninitialise() override;
    /// A running unit is stopped while another device is named, and goes on with that.
    OSStatus setProperty(const PropertyAddress& address, const void* value, UInt32 size) override;

    /// See AudioOutputUnitStart and AudioOutputUnitStop.
    OSStatus start();
    OSStatus stop();
    /// Any thread.
    bool isRunning() const { return isRunning_.load(); }

protected:
    OSStatus makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine) override;
    OSStatus shapeOf(const PropertyAddress& address, PropertyShape& shape) const override;
    OSStatus read(const PropertyAddress& address, void* value) const override;
    OSStatus write(const PropertyAddress& address, const void* value) override;
    std::optional<UInt32> liveValue(const PropertyAddress& address) override;
    bool isShapedBySources() const override { return true; }
    void coupleFormats(AudioUnitScope scope, AudioUnitElement element) override;

private:
    void renderCycle(const AudioTimeStamp& time, UInt32 frames, AudioBufferList& data) override;
    OSStatus shapeOfDeviceProperty(AudioUnitPropertyID property, PropertyShape& shape) const;
    void followFormats();

    static const ParameterRange volume;

    std::unique_ptr<OutputHardware> hardware_; ///< null: there is no device
    std::atomic<bool> isRunning_ = false;
};

} // namespace qmx
