// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/Units/OutputHardware.h"
#include "AudioUnit/Units/Unit.h"

namespace qmx
{

/// Plays its input on a device. It looks for none until one is named or the unit is started: formats, callbacks and
/// initialising work without a device, and so does AudioUnitRender, which delivers the input in the output's format at
/// the caller's pace. Until then the output format is the input format, and the device's nominal rate reads as the
/// input's rate.
///
/// Without a named device it plays on the default output and follows it when the default changes. When the device goes
/// away, or changes its rate or channels, the unit looks for its device again: it goes on there, or stops until one is
/// named or becomes the default.
///
/// With a callback as its input, the input's rate is converted to the device's; with another unit as its input, one
/// input frame is rendered for each output frame.
class OutputUnit : public Unit, public std::enable_shared_from_this<OutputUnit>, private OutputClient
{
public:
    explicit OutputUnit(std::unique_ptr<OutputHardware> hardware);

    OutputUnit* asOutput() override { return this; }
    OSStatus uninitialise() override;
    OSStatus propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const override;
    OSStatus property(const UnitPropertyAddress& address, void* value, UInt32& size) override;
    /// A running unit stops while another device is named, and goes on with that device.
    OSStatus setProperty(const UnitPropertyAddress& address, const void* value, UInt32 size) override;

    /// See AudioOutputUnitStart and AudioOutputUnitStop.
    OSStatus start();
    OSStatus stop();
    /// Any thread.
    bool isRunning() const { return isRunning_.load(); }

protected:
    OSStatus makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine) override;
    OSStatus shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const override;
    OSStatus read(const UnitPropertyAddress& address, void* value) const override;
    OSStatus write(const UnitPropertyAddress& address, const void* value) override;
    std::optional<UInt32> liveValue(const UnitPropertyAddress& address) override;
    bool isShapedBySources() const override { return true; }
    void coupleFormats(AudioUnitScope scope, AudioUnitElement element) override;

private:
    void renderCycle(const AudioTimeStamp& time, UInt32 frames, const PcmLayout& layout,
                     AudioBufferList& data) override;
    void deviceChanged() override;
    bool isOfDevice(AudioUnitPropertyID property) const;
    OSStatus setDevice(AudioDeviceID device);
    OSStatus adopt(const OutputDevice& device);
    void followFormats();
    OSStatus resume();
    OSStatus startOnDevice(Replacement& replacement);
    bool halt();
    bool isOnCurrentDevice();

    static const ParameterRange volume;

    const std::unique_ptr<OutputHardware> hardware_;
    OutputDevice device_;                   ///< last played on or named; initially unknown. Under the control lock.
    std::atomic<bool> knowsDevice_ = false; ///< whether `device_` is known
    std::mutex starting_; ///< one start at a time; never taken on real-time threads or inside callbacks
    std::atomic<bool> wantsToRun_ = false; ///< started and not stopped, with or without a device
    std::atomic<bool> isRunning_ = false;
};

} // namespace qmx
