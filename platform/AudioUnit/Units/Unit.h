// SPDX-License-Identifier: MIT
// The base of every audio unit: elements with formats and sources, properties, parameters, listeners, rendering.
//
// A concrete unit defines its initial elements, how a bus is rendered (`makeEngine`), and its further properties
// (`shapeOf`, `read`, `write`). Control calls lock; rendering, parameters and `liveValue` do not. Objects that a render
// uses are published through atomic pointers and freed when no render uses them any more.
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
#include <utility>
#include <vector>

namespace qmx
{

/// Initial kAudioUnitProperty_StreamFormat of every element: 44100 Hz, 32-bit float, non-interleaved stereo.
extern const AudioStreamBasicDescription canonicalFormat;

class OutputUnit;

class QMX_EXPORT Unit
{
public:
    virtual ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    /// The handle that listeners receive.
    void setHandle(AudioUnit handle) { handle_ = handle; }

    // Control calls, as in AudioUnit.h. Except inside callbacks, none of them returns while a render still uses what it
    // replaced.
    virtual OSStatus initialise();
    virtual OSStatus uninitialise();
    OSStatus reset();
    /// Uninitialises, releases the input sources and the listeners, and waits for renders in flight.
    void close();
    virtual OSStatus propertyInfo(const UnitPropertyAddress& address, UInt32* size, Boolean* isWritable) const;
    virtual OSStatus property(const UnitPropertyAddress& address, void* value, UInt32& size);
    virtual OSStatus setProperty(const UnitPropertyAddress& address, const void* value, UInt32 size);
    OSStatus addRenderNotify(const AURenderCallbackStruct& notify);
    OSStatus removeRenderNotify(const AURenderCallbackStruct& notify);

    PropertyListeners& listeners() { return listeners_; }
    /// This unit if it plays on a device, otherwise null.
    virtual OutputUnit* asOutput() { return nullptr; }
    bool isInitialised() const { return isInitialised_.load(); }

    /// Any thread, real-time ones included.
    virtual OSStatus parameter(AudioUnitParameterID id, AudioUnitScope scope, Float32& value);
    virtual OSStatus setParameter(AudioUnitParameterID id, AudioUnitScope scope, Float32 value);

    /// Render thread of the bus. If `expected` is not null, renders only when the bus has that layout.
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

    /// Makes the engine of output bus `bus`; null with status 0 for a bus that renders nothing. Under the control lock.
    virtual OSStatus makeEngine(UInt32 bus, std::unique_ptr<RenderEngine>& engine) = 0;

    // Properties. Overriding functions handle their own and pass on the rest. Under the control lock; `value` has the
    // size from `shapeOf`. `write` notes what it changes.
    virtual OSStatus shapeOf(const UnitPropertyAddress& address, PropertyShape& shape) const;
    virtual OSStatus read(const UnitPropertyAddress& address, void* value) const;
    virtual OSStatus write(const UnitPropertyAddress& address, const void* value);
    /// 32-bit values that any thread may read without a lock.
    virtual std::optional<UInt32> liveValue(const UnitPropertyAddress& address);

    /// Whether an output bus renders the unit's inputs, rather than something of its own.
    virtual bool rendersInputs(UInt32 /*bus*/) const { return true; }
    /// Whether a change of an input's source needs new engines.
    virtual bool isShapedBySources() const { return false; }
    /// Updates the formats that follow the given element's format. Under the control lock.
    virtual void coupleFormats(AudioUnitScope scope, AudioUnitElement element);

    /// Copies `shape` to `result` if the element exists outside of the global scope.
    OSStatus ofElement(const UnitPropertyAddress& address, const PropertyShape& shape, PropertyShape& result) const;
    /// `shape` for a property of the global scope.
    static OSStatus ofUnit(const UnitPropertyAddress& address, const PropertyShape& shape, PropertyShape& result);
    /// Replaces the engines of an initialised unit; on failure the old ones go on. Under the control lock.
    OSStatus remakeEngines();
    /// Changes what engines are made with; on failure it stays as it was. Under the control lock.
    template <class Setting> OSStatus remakeWith(Setting& setting, Setting next, const UnitPropertyAddress& address)
    {
        std::swap(setting, next);
        const OSStatus status = remakeEngines();
        if (status == noErr)
            noteChange(address);
        else
            setting = std::move(next);
        return status;
    }

    /// Runs `work` under the control lock, then waits for the renders that use what it replaced and calls the
    /// listeners.
    OSStatus control(const std::function<OSStatus()>& work);
    // The parts of `control`, for callers that hold a lock of their own during the first. Destroying `replacement`,
    // made by afterRenders(), waits for the renders: do so without a lock held.
    OSStatus controlLocked(const std::function<OSStatus()>& work, Replacement& replacement);
    Replacement afterRenders() const { return Replacement(renders_); }
    void tellChanges();
    /// Replaces what renders read. Under the control lock.
    template <class Object> void replace(std::atomic<Object*>& slot, std::unique_ptr<Object> next)
    {
        replacement_->replace(slot, std::move(next));
    }
    /// While it exists the caller may use what renders read.
    Publication::Reader rendering() const { return Publication::Reader(renders_); }
    /// What renders an output bus; null when nothing does. While rendering().
    RenderEngine* engine(UInt32 bus) const { return buses_[bus].engine.load(); }
    /// Under the control lock.
    void noteChange(const UnitPropertyAddress& address) { changes_.push_back(address); }
    /// Calls the listeners to `address`. Without a lock held.
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
    const AudioStreamBasicDescription& formatOf(const UnitPropertyAddress& address) const;
    OSStatus setFormat(AudioUnitScope scope, AudioUnitElement element, const AudioStreamBasicDescription& format);
    OSStatus setMaximumFrames(UInt32 frames);
    OSStatus connect(const AudioUnitConnection& connection);
    bool isFedBy(const Unit& unit, UInt32 bus) const;
    OSStatus setInput(UInt32 element, AudioStreamBasicDescription format, std::unique_ptr<const InputSource> source);
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
    std::vector<UnitPropertyAddress> changes_; ///< not yet reported to the listeners
    Publication renders_;                      ///< read engines, sources and notifies
    Replacement* replacement_ = nullptr;       ///< of the call that holds the control lock
    PropertyListeners listeners_;
};

} // namespace qmx
