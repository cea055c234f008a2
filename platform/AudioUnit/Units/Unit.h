// SPDX-License-Identifier: MIT
// The base of every audio unit: elements with formats and sources, properties, parameters, listeners, rendering.
//
// A concrete unit says what its elements are at first, how a bus is rendered (`makeEngine`), and what it has beyond the
// base in properties (`shapeOf`, `read`, `write`). Control calls lock; rendering, parameters and `liveValue` do not.
// What a render follows is published through atomic pointers and freed when no render uses it any more.
#pragma once

#include "AudioUnit/AudioUnit.h"
#include "AudioUnit/Units/InputSource.h"
#include "AudioUnit/Units/PropertyListeners.h"
#include "AudioUnit/Units/RenderEngine.h"
#include "Foundation/Threads/Publication.h"

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace qmx
{

/// What kAudioUnitProperty_StreamFormat is at first on client sides: 44100 Hz, 32-bit float, non-interleaved stereo.
extern const AudioStreamBasicDescription canonicalFormat;

class OutputUnit;

class QMX_EXPORT Unit
{
public:
    virtual ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    /// The handle that listeners get.
    void setHandle(AudioUnit handle) { handle_ = handle; }

    // Control calls, as in AudioUnit.h. None of them returns while a render uses what it took away, but inside
    // callbacks.
    OSStatus initialise();
    virtual OSStatus uninitialise();
    OSStatus reset();
    /// Uninitialises, lets go of what renders input and of the listeners, and waits for renders in flight.
    void close();
    virtual OSStatus propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const;
    virtual OSStatus property(const UnitPropertyAddress& address, void* value, UInt32& size);
    virtual OSStatus setProperty(const UnitPropertyAddress& address, const void* value, UInt32 size);
    OSStatus addRenderNotify(const AURenderCallbackStruct& notify);
    OSStatus removeRenderNotify(const AURenderCallbackStruct& notify);

    PropertyListeners& listeners() { return listeners_; }
    /// The unit as one that plays on a device; null for other units.
    virtual OutputUnit* asOutput() { return nullptr; }
    bool isInitialised() const { return isInitialised_.load(); }

    /// Any thread, real-time ones included.
    virtual OSStatus parameter(AudioUnitParameterID id, AudioUnitScope scope, Float32& value);
    virtual OSStatus setParameter(AudioUnitParameterID id, AudioUnitScope scope, Float32 value);

    /// Render thread of the bus. With `expected` given, renders only if that is the layout of the bus.
    OSStatus render(const RenderCall& call, AudioBufferList& data, const PcmLayout* expected = nullptr);

protected:
    struct Elements {
        UInt32 inputs, outputs;
    };
    /// A parameter of the global scope.
    struct ParameterRange {
        AudioUnitParameterID id;
        Float32 minimum, maximum, initial;
    };
    struct PropertyShape {
        UInt32 size = 0;
        bool isWritable = false;
        bool isReadable = true;
    };

    explicit Unit(Elements elements, std::span<const ParameterRange> parameters = {});

    /// Makes what renders output bus `bus`; null with status 0 for a bus that renders nothing. Under the control lock.
    virtual OSStatus makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine) = 0;

    // Properties. Overriding functions answer their own and hand on the rest. Under the control lock; `value` has the
    // size that `shapeOf` said. `write` notes what it changes.
    virtual OSStatus shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const;
    virtual OSStatus read(const UnitPropertyAddress& address, void* value) const;
    virtual OSStatus write(const UnitPropertyAddress& address, const void* value);
    /// 32-bit values that any thread may ask for without a lock.
    virtual std::optional<UInt32> liveValue(const UnitPropertyAddress& address);

    /// Whether rendering depends on what renders input, so that a change of it makes new engines.
    virtual bool isShapedBySources() const { return false; }
    /// Lets the formats that follow the given element's one follow it. Under the control lock.
    virtual void coupleFormats(AudioUnitScope scope, AudioUnitElement element);

    /// `shape` for a property of the global scope.
    static OSStatus ofUnit(const UnitPropertyAddress& address, const PropertyShape& shape, PropertyShape& result);
    /// Replaces the engines of an initialised unit; on failure the old ones go on. Under the control lock.
    OSStatus remakeEngines();

    /// Runs `work` under the control lock, then waits for the renders that use what it replaced and tells the
    /// listeners.
    OSStatus control(const std::function<OSStatus()>& work);
    // Its parts, for those who hold a lock of their own in the first. The end of `replacement`, made by
    // afterRenders(), waits for the renders: without a lock held.
    OSStatus controlLocked(const std::function<OSStatus()>& work, Replacement& replacement);
    Replacement afterRenders() const { return Replacement(renders_); }
    void tellChanges();
    /// Under the control lock.
    void noteChange(const UnitPropertyAddress& address) { changes_.push_back(address); }
    /// Tells the listeners of `address`. Without a lock held.
    void tell(const UnitPropertyAddress& address) const { listeners_.tell(handle_, address); }

    InputElement& input(UInt32 element) { return inputs_[element]; }
    const InputElement& input(UInt32 element) const { return inputs_[element]; }
    AudioStreamBasicDescription& outputFormat(UInt32 element) { return buses_[element].format; }
    const AudioStreamBasicDescription& outputFormat(UInt32 element) const { return buses_[element].format; }
    UInt32 maximumFrames() const { return maximumFrames_; }

private:
    struct Bus {
        AudioStreamBasicDescription format;
        std::atomic<RenderEngine*> engine = nullptr;
    };
    struct Parameter {
        explicit Parameter(const ParameterRange& of) : range(of), value(of.initial) {}
        ParameterRange range;
        std::atomic<Float32> value;
    };
    struct Notifies {
        std::vector<AURenderCallbackStruct> callbacks;
    };

    OSStatus mayBeSet(const UnitPropertyAddress& address, UInt32 size) const;
    OSStatus elementCount(AudioUnitScope scope, UInt32& count) const;
    OSStatus ofElement(const UnitPropertyAddress& address, const PropertyShape& shape, PropertyShape& result) const;
    const AudioStreamBasicDescription& formatOf(const UnitPropertyAddress& address) const;
    OSStatus setFormat(AudioUnitScope scope, AudioUnitElement element, const AudioStreamBasicDescription& format);
    OSStatus setMaximumFrames(UInt32 frames);
    OSStatus connect(const AudioUnitConnection& connection);
    bool isFedBy(const Unit& unit) const;
    OSStatus setSource(UInt32 element, std::unique_ptr<InputSource> source);
    OSStatus changeNotifies(const std::function<void(std::vector<AURenderCallbackStruct>&)>& change);
    void callNotifies(const RenderCall& call, AudioBufferList& data, AudioUnitRenderActionFlags phase);
    Parameter* parameterOf(AudioUnitParameterID id);

    AudioUnit handle_ = nullptr;
    std::deque<InputElement> inputs_;
    std::deque<Bus> buses_;
    std::deque<Parameter> parameters_;
    std::atomic<const Notifies*> notifies_ = nullptr;
    std::atomic<bool> isInitialised_ = false;
    std::atomic<OSStatus> lastRenderError_ = noErr;
    UInt32 maximumFrames_ = 4096;

    mutable std::mutex control_;
    std::vector<UnitPropertyAddress> changes_; ///< to tell the listeners
    Publication renders_;                      ///< read engines, sources and notifies
    Replacement* replacement_ = nullptr;       ///< of the call that holds the control lock
    PropertyListeners listeners_;
};

} // namespace qmx
