// SPDX-License-Identifier: MIT
#pragma once

#include "AudioUnit/Units/CaptureEngine.h"
#include "AudioUnit/Units/ChannelMap.h"
#include "AudioUnit/Units/Unit.h"
#include "AudioUnit/Units/UnitDevice.h"

namespace qmx
{

/// Plays its input element 0 on a device (output), and offers what the device captures as output bus 1 (input); which
/// of the two it does is set before it is initialised. The input scope of element 0 and the output scope of element 1
/// are the client sides, the others are the device's. It looks for no device until one is named or the unit is started:
/// formats, callbacks and initialising work without a device (an input is asked for its buffer frame size), and so does
/// AudioUnitRender of bus 0, which delivers the input in the output's format at the caller's pace. Until then each
/// device side reads as its client side, and the device's nominal rate as the client's rate.
///
/// Without a named device it uses the default output, or the default input if output is off, and follows it when the
/// default changes. When the device goes away, or changes its rate or channels, the unit looks for its device again: it
/// goes on there, or stops until one is named or becomes the default.
///
/// With a callback as its input, the client's rate is converted to the device's; with another unit as its input, one
/// input frame is rendered for each output frame. Captured frames are converted to the client's rate. The input
/// callback receives them in slices of at most the buffer frame size that the device had when the unit was initialised;
/// what it does not render is dropped. Without an input callback they wait for renders of bus 1 in callbacks of the
/// device's thread, such as the unit's own.
class OutputUnit : public Unit, public std::enable_shared_from_this<OutputUnit>, private CycleClient
{
public:
    /// The default output unit has no input: element 1 is missing.
    explicit OutputUnit(bool hasInput);
    ~OutputUnit() override;

    OutputUnit* asOutput() override { return this; }
    OSStatus initialise() override;
    OSStatus uninitialise() override;
    OSStatus propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const override;
    OSStatus property(const UnitPropertyAddress& address, void* value, UInt32& size) override;
    /// A running unit stops while another device is named, and goes on with that device. If that cannot start, its
    /// status is returned, it stays the current device, and the unit goes on once a device is named that starts.
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
    bool rendersInputs(UInt32 bus) const override { return bus == 0; }
    bool isShapedBySources() const override { return true; }
    void coupleFormats(AudioUnitScope scope, AudioUnitElement element) override;

private:
    void captureCycle(const CapturedFrames& captured) override;
    void renderCycle(const RenderedFrames& rendered) override;
    void deviceChanged() override;
    void offer(CaptureEngine& engine, const AURenderCallbackStruct& callback) const;

    bool isOfDevice(AudioUnitPropertyID property) const;
    bool isOfInput(const UnitPropertyAddress& address) const;
    const AudioStreamBasicDescription& clientFormat() const;
    OSStatus setDirection(bool isInput, bool isUsed);
    OSStatus setChannelMap(UInt32 element, const void* value);
    OSStatus setDevice(AudioDeviceID device);
    OSStatus adopt(const UsedDevice& device);
    void followFormats();
    OSStatus resume(bool replacesRun);
    OSStatus startOnDevice(Replacement& replacement, bool replacesRun);
    bool halt();
    void tellRunning();
    bool changesDevice(const void* value, UInt32 size);
    bool isOnCurrentDevice();

    static const ParameterRange volume;

    const bool hasInput_;
    UnitDevice way_;
    UsedDevice device_;                     ///< last used or named; initially unknown. Under the control lock.
    std::atomic<bool> knowsDevice_ = false; ///< whether `device_` is known
    ChannelMap maps_[2];                    ///< of the output scope's elements. Under the control lock.
    std::atomic<const AURenderCallbackStruct*> inputCallback_ = nullptr;
    std::atomic<UInt32> sliceFrames_ = 0; ///< of what is captured, at most; 0 for as many as are rendered at once
    std::mutex starting_;                 ///< one start at a time; never taken on real-time threads or inside callbacks
    std::atomic<bool> wantsToRun_ = false; ///< started and not stopped, with or without a device
    std::atomic<bool> isRunning_ = false;
    std::atomic<bool> isToldRunning_ = false; ///< as the listeners know it
    std::atomic<SInt64> capturedTime_ = 0;    ///< of the next captured frame; outlasts the engines
    // the host times at which the frames of the last run end; 0 after a stop
    std::atomic<UInt64> capturedUntil_ = 0, renderedUntil_ = 0;
};

} // namespace qmx
