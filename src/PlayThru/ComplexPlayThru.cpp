// SPDX-License-Identifier: MIT
#include "PlayThru/ComplexPlayThru.h"

#include "AudioUnit/AUGraph.h"
#include "Formats/LastFailure.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/FailureLine.h"
#include "Foundation/Text/Format.h"
#include "PlayThru/AudioDevice.h"
#include "PlayThru/DeviceLookup.h"
#include "PlayThru/ThruCycles.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

namespace
{

constexpr qmx::FailureLine checked("qmxcoreaudio", "coreaudio_aac/src/PlayThru/ComplexPlayThru", "error");
constexpr OSStatus noInputUnit = -1;
constexpr OSStatus initialisingFailed = 1;

template <class Value>
OSStatus get(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope, AudioUnitElement element, Value& value)
{
    UInt32 size = sizeof value;
    return AudioUnitGetProperty(unit, property, scope, element, &value, &size);
}

template <class Value>
OSStatus set(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope, AudioUnitElement element,
             const Value& value)
{
    return AudioUnitSetProperty(unit, property, scope, element, &value, sizeof value);
}

/// Stands for a name that cannot be read.
const char* nameOfSide(bool isInput)
{
    return isInput ? "The input device" : "The output device";
}

std::string nameOfDevice(AudioDeviceID id, bool isInput)
{
    AudioDevice device;
    device.mDeviceID = id;
    device.mInput = isInput;
    char name[256];
    const std::string found = device.GetName(name, sizeof name);
    return found.empty() ? nameOfSide(isInput) : found;
}

/// One of the two devices as play-through uses it.
struct Side {
    bool isInput;
    // under `devices_`
    AudioDevice device{};
    std::string uid{}; ///< empty while there is none
    bool isGone = false;
    // under `control_`
    AudioDeviceID listenedTo = kAudioDeviceUnknown;
};

class Implementation final : public ComplexPlayThru
{
public:
    ~Implementation() override;
    OSStatus Init(unsigned long inputDevice, unsigned long outputDevice);

    OSStatus Start() override;
    OSStatus Stop() override;
    bool IsRunning() const override;
    OSStatus SetInputDeviceAsCurrent(unsigned long device) override;
    OSStatus SetOutputDeviceAsCurrent(unsigned long device) override;
    OSStatus SetVolume(float volume) override;
    OSStatus GetVolume(float* volume) const override;
    void SetDriftCorrection(bool isOn) override { cycles_.setDriftCorrection(isOn); }
    OSStatus GetLatency(double* frames) const override;
    unsigned long GetRefusedFetches() const override { return cycles_.refusedFetches(); }
    float GetRate() const override;
    OSStatus lastStatus() const override;
    std::string lastError() const override;

    OSStatus SetupBuffersHacked() override;
    OSStatus SetupBuffers() override;
    OSStatus EnableIO() override;
    OSStatus CallbackSetup() override;
    OSStatus MapChannels() override;
    double ComputeThruOffset() const override;

private:
    template <class Work> OSStatus operate(Work work);
    OSStatus setUp(unsigned long inputDevice, unsigned long outputDevice);
    OSStatus SetupAUHAL(unsigned long inputDevice);
    void SetupGraph(unsigned long outputDevice);
    void MakeGraph();
    OSStatus enableIO();
    OSStatus setCallback();
    OSStatus setFormats(bool areOfDevices);
    OSStatus makeBuffers();
    OSStatus mapChannels();

    OSStatus name(Side& side, unsigned long device);
    void lookFor(Side& side);
    AudioUnit unitOf(const Side& side) const { return side.isInput ? mInputUnit : mOutputUnit; }
    OSStatus takeRecord(Side& side, AudioDeviceID device, const std::string& uid);
    void readAgain(Side& side, AudioDeviceID device);
    OSStatus takeInputRate(AudioDeviceID device);
    void follow();
    Float64 distance() const;
    Float64 neededFrames() const;
    bool fitsRing() const { return neededFrames() <= static_cast<Float64>(cycles_.ringFrames()); }
    void warnOfLongCycles();
    OSStatus listen(Side& side, AudioDeviceID device);
    void stopListening(Side& side);
    AudioDevice deviceOf(const Side& side) const;

    OSStatus kept(OSStatus status, const Side& side, const char* what = "cannot be used for play-through",
                  unsigned line = __builtin_LINE());
    std::string nameOf(const Side& side) const;

    static OSStatus InputProc(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                              UInt32 frames, AudioBufferList* data);
    static OSStatus OutputProc(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                               UInt32 frames, AudioBufferList* data);
    static OSStatus DeviceSampleRateListener(AudioDeviceID device, UInt32 channel, Boolean isInput,
                                             AudioDevicePropertyID property, void* self);
    static OSStatus shapeChanged(AudioDeviceID device, UInt32 channel, Boolean isInput, AudioDevicePropertyID property,
                                 void* self);
    static OSStatus devicesChanged(AudioHardwarePropertyID property, void* self);

    AudioUnit mInputUnit = nullptr;
    AUGraph mGraph = nullptr;
    AUNode mVarispeedNode = 0, mOutputNode = 0;
    AudioUnit mVarispeedUnit = nullptr, mOutputUnit = nullptr;

    // locked in this order
    std::mutex control_; ///< one call that changes something at a time; what listens to a device does not take it
    std::mutex reading_; ///< one reading of a device at a time, until it is stored
    mutable std::mutex devices_; ///< never held while a device is asked
    Side mInput{.isInput = true}, mOutput{.isInput = false};
    // under `control_`
    unsigned long askedOutput_ = 0; ///< at the set-up
    bool isSetUp_ = false;
    bool isStarted_ = false; ///< and not stopped, with or without its devices

    qmx::ThruCycles cycles_;
    std::atomic<Float64> nominalRate_ = 1;        ///< input frames per output frame, without correction
    std::atomic<OSStatus> captureStatus_ = noErr; ///< of the first failing cycle since the last change
    qmx::LastFailure failure_;
};

/// Keeps the failure and prints its line.
OSStatus Implementation::kept(OSStatus status, const Side& side, const char* what, unsigned line)
{
    if (checked(status, line) == noErr)
        return noErr;
    const std::string name = qmx::withinMemory(std::string(), [&] { return nameOf(side); });
    return failure_.keepFirst(status, name, what);
}

/// A device that has gone is named by its UID.
std::string Implementation::nameOf(const Side& side) const
{
    AudioDeviceID id = kAudioDeviceUnknown;
    {
        const std::scoped_lock lock(devices_);
        if (side.isGone)
            return side.uid;
        id = side.device.mDeviceID;
    }
    return nameOfDevice(id, side.isInput);
}

/// A call that changes something: it forgets what failed before.
template <class Work> OSStatus Implementation::operate(Work work)
{
    const std::scoped_lock lock(control_);
    const qmx::LastFailure::Operation operation(failure_);
    captureStatus_.store(noErr);
    const OSStatus status = qmx::withinMemory(OSStatus{kAudio_MemFullError}, work);
    return failure_.keepFirst(status, "Play-through", "failed"); // where nothing else is kept
}

Implementation::~Implementation()
{
    if (mInputUnit)
        (void)Stop();
    // fails where it was not registered
    (void)AudioHardwareRemovePropertyListener(kAudioHardwarePropertyDevices, devicesChanged, this);
    stopListening(mInput);
    stopListening(mOutput);
    if (mInputUnit)
        (void)CloseComponent(mInputUnit);
    if (mGraph)
        (void)DisposeAUGraph(mGraph);
}

// --- Set-up ----------------------------------------------------------------------------------------------------------

OSStatus Implementation::Init(unsigned long inputDevice, unsigned long outputDevice)
{
    return operate([&] { return setUp(inputDevice, outputDevice); });
}

OSStatus Implementation::setUp(unsigned long inputDevice, unsigned long outputDevice)
{
    if (const OSStatus status = SetupAUHAL(inputDevice); status != noErr)
        return status;
    SetupGraph(outputDevice);
    setFormats(false);
    kept(AUGraphInitialize(mGraph), mOutput);
    takeInputRate(mInput.device.mDeviceID);
    const Float64 in = mInput.device.mStreamFormat.mSampleRate, out = mOutput.device.mStreamFormat.mSampleRate;
    if (in > 0 && out > 0 && in != out)
        std::printf("Info::Sample rate mismatched: (in=%f / out=%f).\n\t\t Setting Varispeed rate to %f.\n", in, out,
                    static_cast<double>(GetRate()));
    isSetUp_ = true;
    // without it a device that goes away is not taken up again
    kept(AudioHardwareAddPropertyListener(kAudioHardwarePropertyDevices, devicesChanged, this), mInput);
    if (mOutput.device.mDeviceID != kAudioDeviceUnknown) {
        kept(listen(mOutput, mOutput.device.mDeviceID), mOutput);
        readAgain(mOutput, mOutput.device.mDeviceID); // it may have changed meanwhile
    }
    const OSStatus status = kept(listen(mInput, mInput.device.mDeviceID), mInput);
    if (status == noErr)
        readAgain(mInput, mInput.device.mDeviceID);
    return status;
}

OSStatus Implementation::SetupAUHAL(unsigned long inputDevice)
{
    const ComponentDescription description{kAudioUnitType_Output, kAudioUnitSubType_HALOutput,
                                           kAudioUnitManufacturer_Apple};
    const Component component = FindNextComponent(nullptr, &description);
    if (!component)
        return noInputUnit;
    if (const OSStatus status = kept(OpenAComponent(component, &mInputUnit), mInput); status != noErr)
        return status;
    enableIO();
    name(mInput, inputDevice);
    setCallback();
    kept(AudioUnitInitialize(mInputUnit), mInput);
    return noErr;
}

OSStatus Implementation::EnableIO()
{
    return operate([this] {
        kept(AudioUnitUninitialize(mInputUnit), mInput); // it would refuse
        const OSStatus status = enableIO(), startStatus = kept(AudioUnitInitialize(mInputUnit), mInput);
        return status != noErr ? status : startStatus;
    });
}

OSStatus Implementation::enableIO()
{
    const OSStatus status =
        kept(set(mInputUnit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, UInt32{1}), mInput);
    const OSStatus offStatus =
        kept(set(mInputUnit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, UInt32{0}), mInput);
    return status != noErr ? status : offStatus;
}

OSStatus Implementation::CallbackSetup()
{
    return operate([this] { return setCallback(); });
}

OSStatus Implementation::setCallback()
{
    const AURenderCallbackStruct callback{InputProc, this};
    return kept(set(mInputUnit, kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0, callback),
                mInput);
}

void Implementation::SetupGraph(unsigned long outputDevice)
{
    askedOutput_ = outputDevice;
    kept(NewAUGraph(&mGraph), mOutput);
    kept(AUGraphOpen(mGraph), mOutput);
    MakeGraph();
    name(mOutput, outputDevice);
    const AURenderCallbackStruct callback{OutputProc, this};
    kept(set(mVarispeedUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, callback), mOutput);
}

void Implementation::MakeGraph()
{
    const ComponentDescription varispeed{kAudioUnitType_FormatConverter, kAudioUnitSubType_Varispeed,
                                         kAudioUnitManufacturer_Apple};
    const ComponentDescription output{kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput,
                                      kAudioUnitManufacturer_Apple};
    kept(AUGraphNewNode(mGraph, &varispeed, 0, nullptr, &mVarispeedNode), mOutput);
    kept(AUGraphNewNode(mGraph, &output, 0, nullptr, &mOutputNode), mOutput);
    kept(AUGraphGetNodeInfo(mGraph, mVarispeedNode, nullptr, nullptr, nullptr, &mVarispeedUnit), mOutput);
    kept(AUGraphGetNodeInfo(mGraph, mOutputNode, nullptr, nullptr, nullptr, &mOutputUnit), mOutput);
    kept(AUGraphConnectNodeInput(mGraph, mVarispeedNode, 0, mOutputNode, 0), mOutput);
    kept(AUGraphUpdate(mGraph, nullptr), mOutput);
}

/// The client format stays as it is, its rate included: the varispeed alone makes up for rates that differ.
OSStatus Implementation::SetupBuffersHacked()
{
    return operate([this] { return setFormats(false); });
}

OSStatus Implementation::SetupBuffers()
{
    return operate([this] { return setFormats(true); });
}

OSStatus Implementation::setFormats(bool areOfDevices)
{
    constexpr AudioUnitPropertyID format = kAudioUnitProperty_StreamFormat;
    AudioStreamBasicDescription client;
    kept(get(mInputUnit, format, kAudioUnitScope_Output, 1, client), mInput);

    if (areOfDevices)
        kept(qmx::nominalRateOf(deviceOf(mInput).mDeviceID, true, client.mSampleRate), mInput);
    kept(set(mInputUnit, format, kAudioUnitScope_Output, 1, client), mInput);
    kept(set(mVarispeedUnit, format, kAudioUnitScope_Input, 0, client), mInput);
    if (areOfDevices)
        kept(qmx::nominalRateOf(deviceOf(mOutput).mDeviceID, false, client.mSampleRate), mOutput);
    kept(set(mVarispeedUnit, format, kAudioUnitScope_Output, 0, client), mOutput);
    kept(set(mOutputUnit, format, kAudioUnitScope_Input, 0, client), mOutput);

    return makeBuffers();
}

/// The ring carries the client's channels: the units share them out among those of any devices, also of later ones.
OSStatus Implementation::makeBuffers()
{
    UInt32 frames = 0;
    AudioStreamBasicDescription client;
    kept(get(mInputUnit, kAudioDevicePropertyBufferFrameSize, kAudioUnitScope_Global, 0, frames), mInput);
    kept(get(mInputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1, client), mInput);
    const auto needed = static_cast<unsigned long>(std::ceil(neededFrames()));
    return kept(cycles_.prepare(client.mChannelsPerFrame, frames, client.mBytesPerFrame, needed), mInput);
}

OSStatus Implementation::MapChannels()
{
    return operate([this] { return mapChannels(); });
}

OSStatus Implementation::mapChannels()
{
    AudioStreamBasicDescription device, output;
    kept(get(mInputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 1, device), mInput);
    kept(get(mOutputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, output), mOutput);
    if (device.mChannelsPerFrame == output.mChannelsPerFrame)
        return noErr;
    std::vector<SInt32> map(output.mChannelsPerFrame);
    std::puts("---Channel Mapping---");
    for (std::size_t i = 0; i < map.size(); ++i) {
        map[i] = static_cast<SInt32>(i);
        std::printf("Info:Input Channel (%ld): maps to output channel %ld  \n", static_cast<long>(i),
                    static_cast<long>(i));
    }
    return kept(AudioUnitSetProperty(mInputUnit, kAudioOutputUnitProperty_ChannelMap, kAudioUnitScope_Output, 1,
                                     map.data(), static_cast<UInt32>(map.size() * sizeof(SInt32))),
                mInput);
}

// --- Devices ---------------------------------------------------------------------------------------------------------

AudioDevice Implementation::deviceOf(const Side& side) const
{
    const std::scoped_lock lock(devices_);
    return side.device;
}

OSStatus Implementation::SetInputDeviceAsCurrent(unsigned long device)
{
    return operate([&] { return name(mInput, device); });
}

OSStatus Implementation::SetOutputDeviceAsCurrent(unsigned long device)
{
    return operate([&] { return name(mOutput, device); });
}

/// A device that the unit refuses changes nothing. Under `control_`.
OSStatus Implementation::name(Side& side, unsigned long device)
{
    auto id = static_cast<AudioDeviceID>(device);
    if (id == kAudioDeviceUnknown) {
        const OSStatus status = checked(qmx::defaultDevice(side.isInput, id));
        if (status != noErr)
            return failure_.keepFirst(status, nameOfSide(side.isInput), "does not exist");
    }
    const std::string uid = qmx::uidOfDevice(id);
    AudioDeviceID current = kAudioDeviceUnknown;
    const OSStatus status =
        checked(set(unitOf(side), kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0, id));
    if (status != noErr)
        failure_.keepFirst(status, nameOfDevice(id, side.isInput), "cannot be used for play-through");
    kept(get(unitOf(side), kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0, current), side);
    if (status != noErr && (current != id || uid.empty()))
        return status;

    if (isSetUp_) {
        stopListening(side);
        kept(listen(side, id), side);
    }
    const OSStatus recordStatus = takeRecord(side, id, uid);
    if (isSetUp_ && side.isInput)
        takeInputRate(id);
    OSStatus startStatus = noErr;
    if (isStarted_ && status == noErr) // the last one may have been away at the start
        startStatus = kept(AudioOutputUnitStart(unitOf(side)), side, "cannot be started");
    follow();
    if (isSetUp_)
        warnOfLongCycles();
    return status != noErr ? status : recordStatus != noErr ? recordStatus : startStatus;
}

/// Tells that a device has gone, and names it again when it has returned, under another ID. Under `control_`.
void Implementation::lookFor(Side& side)
{
    std::string uid;
    AudioDeviceID last = kAudioDeviceUnknown;
    {
        const std::scoped_lock lock(devices_);
        uid = side.uid;
        last = side.device.mDeviceID;
    }
    if (uid.empty())
        return;
    const AudioDeviceID found = qmx::deviceWithUID(uid);
    const bool isGone = found == kAudioDeviceUnknown;
    bool wasGone = false;
    {
        const std::scoped_lock lock(devices_);
        wasGone = std::exchange(side.isGone, isGone);
    }
    if (isGone && !wasGone)
        failure_.keepFirst(kAudioHardwareBadDeviceError, uid, "is gone", "it is used again when it returns");
    if (isGone || found == last)
        return;
    const qmx::LastFailure::Operation operation(failure_);
    captureStatus_.store(noErr);
    name(side, found);
}

/// Takes the record of another device.
OSStatus Implementation::takeRecord(Side& side, AudioDeviceID device, const std::string& uid)
{
    const std::scoped_lock reading(reading_);
    AudioDevice record;
    const OSStatus status = kept(record.Init(device, side.isInput), side);
    const std::scoped_lock lock(devices_);
    side.device = record;
    side.uid = uid;
    side.isGone = false;
    return status;
}

/// Takes the record of a device as it is now.
void Implementation::readAgain(Side& side, AudioDeviceID device)
{
    {
        const std::scoped_lock reading(reading_);
        AudioDevice record;
        if (deviceOf(side).mDeviceID != device || kept(record.Init(device, side.isInput), side) != noErr)
            return;
        const std::scoped_lock lock(devices_);
        side.device = record;
    }
    follow();
    warnOfLongCycles();
}

/// Has the input unit deliver at the device's present rate.
OSStatus Implementation::takeInputRate(AudioDeviceID device)
{
    OSStatus status = noErr;
    {
        const std::scoped_lock reading(reading_);
        AudioStreamBasicDescription client;
        kept(get(mInputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1, client), mInput);
        status = kept(qmx::nominalRateOf(device, true, client.mSampleRate), mInput);
        if (status != noErr)
            return status;
        status = kept(set(mInputUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1, client), mInput);
        const std::scoped_lock lock(devices_);
        if (mInput.device.mDeviceID == device) // otherwise another one is being named
            mInput.device.mStreamFormat.mSampleRate = client.mSampleRate;
    }
    follow();
    return status;
}

/// Has the varispeed make up for the devices' rates, and the offset be measured again.
void Implementation::follow()
{
    OSStatus status = noErr;
    {
        const std::scoped_lock lock(devices_); // the last one has the last word
        const Float64 in = mInput.device.mStreamFormat.mSampleRate, out = mOutput.device.mStreamFormat.mSampleRate;
        if (in > 0 && out > 0) {
            nominalRate_.store(in / out);
            cycles_.setInputRate(in);
            status = AudioUnitSetParameter(mVarispeedUnit, kVarispeedParam_PlaybackRate, kAudioUnitScope_Global, 0,
                                           static_cast<Float32>(in / out), 0);
        }
        cycles_.restart(distance());
    }
    kept(status, mOutput);
}

double Implementation::ComputeThruOffset() const
{
    const std::scoped_lock lock(devices_);
    const AudioDevice &in = mInput.device, &out = mOutput.device;
    return static_cast<double>(UInt64{in.mSafetyFrames} + in.mBufferFrames + out.mSafetyFrames + out.mBufferFrames);
}

/// Input frames between input and output: the output's part grows with the rate, for a cycle of a slower output takes
/// more of them than it has itself, and would find the last ones missing. Under `devices_`.
Float64 Implementation::distance() const
{
    const AudioDevice &in = mInput.device, &out = mOutput.device;
    return static_cast<Float64>(UInt64{in.mSafetyFrames} + in.mBufferFrames) +
           static_cast<Float64>(UInt64{out.mSafetyFrames} + out.mBufferFrames) * std::max(1.0, nominalRate_.load());
}

/// What the ring has to hold, in frames: the distance, and the cycle that is fetched.
Float64 Implementation::neededFrames() const
{
    const std::scoped_lock lock(devices_);
    return distance() + mOutput.device.mBufferFrames * nominalRate_.load();
}

void Implementation::warnOfLongCycles()
{
    if (fitsRing())
        return;
    const std::string reason = qmx::format("output cycles of %u frames do not fit the ring of %qu",
                                           deviceOf(mOutput).mBufferFrames, UInt64{cycles_.ringFrames()});
    std::fprintf(stderr, "qmxcoreaudio error: %s\n", reason.c_str());
    failure_.keepFirst(kAudioUnitErr_TooManyFramesToProcess, nameOf(mOutput), "is silent until the next start", reason);
}

/// Under `control_`.
OSStatus Implementation::listen(Side& side, AudioDeviceID device)
{
    const OSStatus status = AudioDeviceAddPropertyListener(
        device, kAudioPropertyWildcardChannel, side.isInput, kAudioDevicePropertyNominalSampleRate,
        side.isInput ? DeviceSampleRateListener : shapeChanged, this);
    if (status != noErr)
        return status;
    side.listenedTo = device;
    // without it longer cycles than at first are refused
    kept(AudioDeviceAddPropertyListener(device, kAudioPropertyWildcardChannel, side.isInput,
                                        kAudioDevicePropertyBufferFrameSize, shapeChanged, this),
         side);
    return noErr;
}

void Implementation::stopListening(Side& side)
{
    const AudioDeviceID device = std::exchange(side.listenedTo, kAudioDeviceUnknown);
    if (device == kAudioDeviceUnknown)
        return;
    // both fail where the device is gone
    (void)AudioDeviceRemovePropertyListener(device, kAudioPropertyWildcardChannel, side.isInput,
                                            kAudioDevicePropertyNominalSampleRate,
                                            side.isInput ? DeviceSampleRateListener : shapeChanged, this);
    (void)AudioDeviceRemovePropertyListener(device, kAudioPropertyWildcardChannel, side.isInput,
                                            kAudioDevicePropertyBufferFrameSize, shapeChanged, this);
}

OSStatus Implementation::DeviceSampleRateListener(AudioDeviceID device, UInt32, Boolean isInput, AudioDevicePropertyID,
                                                  void* self)
{
    if (!isInput)
        return noErr;
    auto& engine = *static_cast<Implementation*>(self);
    return qmx::withinMemory(OSStatus{kAudio_MemFullError}, [&] { return engine.takeInputRate(device); });
}

/// The output's rate, and both devices' buffers.
OSStatus Implementation::shapeChanged(AudioDeviceID device, UInt32, Boolean isInput, AudioDevicePropertyID, void* self)
{
    auto& engine = *static_cast<Implementation*>(self);
    const auto read = [&] { engine.readAgain(isInput ? engine.mInput : engine.mOutput, device); };
    return qmx::withinMemory(read) ? noErr : kAudio_MemFullError;
}

OSStatus Implementation::devicesChanged(AudioHardwarePropertyID, void* self)
{
    auto& engine = *static_cast<Implementation*>(self);
    const std::scoped_lock lock(engine.control_);
    const auto look = [&] {
        engine.lookFor(engine.mInput);
        engine.lookFor(engine.mOutput);
    };
    return qmx::withinMemory(look) ? noErr : kAudio_MemFullError;
}

// --- Control ---------------------------------------------------------------------------------------------------------

OSStatus Implementation::Start()
{
    return operate([this]() -> OSStatus {
        if (IsRunning()) {
            if (isStarted_) // with an input that may have failed then
                kept(AudioOutputUnitStart(mInputUnit), mInput, "cannot be started");
            return noErr;
        }
        if (deviceOf(mOutput).mDeviceID == kAudioDeviceUnknown) // there may be one now
            if (const OSStatus status = name(mOutput, askedOutput_); status != noErr)
                return status;
        if (!fitsRing()) {
            kept(AudioOutputUnitStop(mInputUnit), mInput, "cannot be stopped"); // it runs on where the output went away
            makeBuffers();
        }
        kept(AudioOutputUnitStart(mInputUnit), mInput, "cannot be started");
        const OSStatus status = kept(AUGraphStart(mGraph), mOutput, "cannot be started");
        isStarted_ = status == noErr;
        if (!isStarted_)
            kept(AudioOutputUnitStop(mInputUnit), mInput, "cannot be stopped");
        follow();
        return status;
    });
}

OSStatus Implementation::Stop()
{
    return operate([this] {
        const bool wasRunning = IsRunning();
        isStarted_ = false;
        // also a side that waits for its device: it would go on when that returns
        kept(AudioOutputUnitStop(mInputUnit), mInput, "cannot be stopped");
        const OSStatus status = kept(AUGraphStop(mGraph), mOutput, "cannot be stopped");
        follow();
        return wasRunning ? status : OSStatus{noErr};
    });
}

bool Implementation::IsRunning() const
{
    UInt32 outputRuns = 0;
    Boolean graphRuns = false;
    checked(get(mOutputUnit, kAudioOutputUnitProperty_IsRunning, kAudioUnitScope_Global, 0, outputRuns));
    checked(AUGraphIsRunning(mGraph, &graphRuns));
    return outputRuns != 0 || graphRuns;
}

OSStatus Implementation::SetVolume(float volume)
{
    return operate([&] {
        return kept(AudioUnitSetParameter(mOutputUnit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, volume, 0),
                    mOutput, "does not take the volume");
    });
}

OSStatus Implementation::GetVolume(float* volume) const
{
    return checked(AudioUnitGetParameter(mOutputUnit, kHALOutputParam_Volume, kAudioUnitScope_Global, 0, volume));
}

OSStatus Implementation::GetLatency(double* frames) const
{
    Float64 seconds = 0;
    AudioStreamBasicDescription client;
    checked(get(mVarispeedUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, client));
    const OSStatus status =
        checked(get(mVarispeedUnit, kAudioUnitProperty_Latency, kAudioUnitScope_Global, 0, seconds));
    const std::scoped_lock lock(devices_);
    *frames = distance() + seconds * client.mSampleRate;
    return status;
}

float Implementation::GetRate() const
{
    Float32 rate = 0;
    checked(AudioUnitGetParameter(mVarispeedUnit, kVarispeedParam_PlaybackRate, kAudioUnitScope_Global, 0, &rate));
    return rate;
}

OSStatus Implementation::lastStatus() const
{
    return failure_.status() != noErr ? failure_.status() : captureStatus_.load();
}

std::string Implementation::lastError() const
{
    return qmx::withinMemory(std::string(), [this] {
        if (failure_.status() != noErr)
            return failure_.sentence();
        qmx::LastFailure capture;
        capture.keepFirst(captureStatus_.load(), nameOf(mInput), "could not be captured from");
        return capture.sentence();
    });
}

// --- Cycles ----------------------------------------------------------------------------------------------------------

OSStatus Implementation::InputProc(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                                   UInt32 bus, UInt32 frames, AudioBufferList*)
{
    auto& engine = *static_cast<Implementation*>(self);
    const OSStatus status = checked(engine.cycles_.capture(engine.mInputUnit, flags, *time, bus, frames));
    OSStatus none = noErr;
    if (status != noErr)
        engine.captureStatus_.compare_exchange_strong(none, status);
    return status;
}

OSStatus Implementation::OutputProc(void* self, AudioUnitRenderActionFlags*, const AudioTimeStamp* time, UInt32,
                                    UInt32 frames, AudioBufferList* data)
{
    auto& engine = *static_cast<Implementation*>(self);
    const OSStatus status = engine.cycles_.play(*time, frames, *data);
    if (status != noErr)
        return status;
    const Float64 rate = engine.nominalRate_.load() * engine.cycles_.factor();
    checked(AudioUnitSetParameter(engine.mVarispeedUnit, kVarispeedParam_PlaybackRate, kAudioUnitScope_Global, 0,
                                  static_cast<Float32>(rate), 0));
    return noErr;
}

} // namespace

std::unique_ptr<ComplexPlayThru> ComplexPlayThru::make(unsigned long inputDevice, unsigned long outputDevice,
                                                       OSStatus& status, std::string* reason)
{
    std::unique_ptr<Implementation> made;
    status = kAudio_MemFullError;
    if (qmx::withinMemory([&] { made = std::make_unique<Implementation>(); }))
        status = made->Init(inputDevice, outputDevice);
    if (status == noErr)
        return made;
    std::fputs("qmxcoreaudio error: unable to initialize play thru", stderr);
    status = status == noInputUnit ? noInputUnit : initialisingFailed;
    if (reason && made)
        *reason = made->lastError();
    return nullptr;
}
