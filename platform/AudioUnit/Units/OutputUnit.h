// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/Units/OutputHardware.h"
#include "AudioUnit/Units/Unit.h"

namespace qmx
{

/// Plays what its input renders on a device. Until one is named, or it is started, it asks for none: formats, callbacks
/// and initialising work without, and so does AudioUnitRender, which delivers the input in the output's format at the
/// caller's pace. Till then the output side mirrors the client side, and the device's nominal rate is the client
/// format's.
///
/// Without a named device it plays on the default output and follows it when another device becomes that. A device that
/// goes away, or changes its rate or channels, has the unit look for its device again: it goes on there, or stops until
/// one is named or becomes the default.
///
/// With a callback as its input the client's rate is converted to the device's; with another unit one frame is rendered
/// for each.
class OutputUnit : public Unit, public std::enable_shared_from_this<OutputUnit>, private OutputClient
{
public:
    explicit OutputUnit(std::unique_ptr<OutputHardware> hardware);

    OutputUnit* asOutput() override { return this; }
    OSStatus uninitialise() override;
    OSStatus propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const override;
    OSStatus property(const UnitPropertyAddress& address, void* value, UInt32& size) override;
    /// A running unit is stopped while another device is named, and goes on with that.
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
    OutputDevice device_;                   ///< played on or named last; unknown at first. Under the control lock.
    std::atomic<bool> knowsDevice_ = false; ///< whether `device_` is one
    std::mutex starting_; ///< one start at a time; never taken on real-time threads or inside callbacks
    std::atomic<bool> wantsToRun_ = false; ///< started, whether there is a device or not
    std::atomic<bool> isRunning_ = false;
};

} // namespace qmx
