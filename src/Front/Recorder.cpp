// SPDX-License-Identifier: MIT
#include "Front/Recorder.h"

#include "Devices/QMXAudioDeviceNotifications.h"
#include "FileRelated/QMXExtAudioFile.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Foundation/Files/FileManager.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Foundation/MainThread/Timer.h"
#include "Front/Missing.h"
#include "Front/RecordingEngine.h"
#include "Front/ShortMemory.h"
#include "Front/StatusText.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace qmx
{
namespace
{

enum class State { recording, paused, ended };

/// The format of the device's samples as a source of files.
Result<Format> formatOf(const Device& device, UInt32 channels)
{
    const auto physical = device.object()->physicalStreamFormat_isInput(0, true);
    if (!physical || channels == 0)
        return missing(*device.object(), true);
    const UInt32 bits = std::max(physical->bitsPerChannel(), 16U);
    return Format{.fileType = 0,
                  .stream = packedPhysicalFormat(device.sampleRate(), channels, bits, physical->isFloat())};
}

/// From the options' numbers, counted from 1.
Result<std::vector<SInt32>> channelsOf(const Device& device, const RecorderOptions& options, const Format& wish)
{
    const UInt32 present = device.inputChannels();
    std::vector<SInt32> channels;
    for (const UInt32 channel : options.channels) {
        if (channel < 1 || channel > present)
            return Error(paramErr, device.name() + " has no input channel " + std::to_string(channel));
        channels.push_back(static_cast<SInt32>(channel - 1));
    }
    if (channels.empty()) {
        channels.resize(wish.stream.mFormatID == 0 || wish.isLossless() ? present : std::min(present, 2U));
        std::iota(channels.begin(), channels.end(), 0);
    }
    return channels;
}

/// The type that the path's extension says, where the options say none.
Result<Format> wishOf(const std::string& path, const RecorderOptions& options)
{
    if (options.format && options.format->fileType != 0)
        return *options.format;
    auto wish = Format::forPath(path);
    if (!wish || !options.format)
        return wish;
    Format chosen = *options.format;
    chosen.fileType = wish->fileType;
    if (chosen.stream.mFormatID == 0)
        chosen.stream.mFormatID = wish->stream.mFormatID;
    return chosen;
}

Result<RecordingPlan> planOf(const Device& device, const std::string& path, const RecorderOptions& options)
{
    if (options.seconds && !(*options.seconds > 0 && std::isfinite(*options.seconds)))
        return Error(paramErr, path + ": A recording cannot take that time", path);
    const auto wish = wishOf(path, options);
    if (!wish)
        return wish.error();
    auto channels = channelsOf(device, options, *wish);
    if (!channels)
        return channels.error();
    const auto source = formatOf(device, static_cast<UInt32>(channels->size()));
    if (!source)
        return source.error();
    auto format = wish->completedFrom(*source);
    if (!format)
        return format.error();
    FileStatus existing;
    if (!options.replace && FileSystem::current().status(path, existing) == 0)
        return fileError(dupFNErr, path);
    return RecordingPlan{QMXAudioDevice::deviceWithDeviceID(device.id()), path, *format, *std::move(channels),
                         options.replace};
}

RecordingEngine::Made engineFor(const RecordingPlan& plan, const RecorderOptions& options)
{
    const bool isPlain = plan.format.isLinear() && options.channels.empty() &&
                         options.whenUnplugged == WhenUnplugged::end && plan.device->numberOfStreams(true) == 1 &&
                         plan.format.stream.mChannelsPerFrame == plan.channels.size();
    return isPlain ? RecordingEngine::onDevice(plan) : RecordingEngine::onUnit(plan);
}

/// Frames of a closed file; 0 if it cannot be read.
SInt64 framesOf(const std::string& path)
{
    const auto file = QMXExtAudioFile::initForReading(path);
    return file && file->open() == noErr ? std::max<SInt64>(file->lengthInFrames(), 0) : 0;
}

} // namespace

struct Recorder::Implementation : std::enable_shared_from_this<Implementation> {
    Implementation(Device source, RecordingPlan made, const RecorderOptions& wanted,
                   std::unique_ptr<RecordingEngine> used)
        : device(std::move(source)), plan(std::move(made)), options(wanted), engine(std::move(used)), uid(device.uid()),
          rate(device.sampleRate())
    {
    }
    ~Implementation()
    {
        for (const auto& timer : timers)
            timer->invalidate();
    }

    /// A handler that calls a member function as long as this exists.
    auto handler(void (Implementation::*act)())
    {
        return [weak = weak_from_this(), act](const auto&) {
            if (const auto self = weak.lock())
                (void)withinMemory([&] { (self.get()->*act)(); }); // without memory it goes on as it is
        };
    }

    void watch()
    {
        auto& center = NotificationCenter::defaultCenter();
        observers =
            Subscription({center.observe(QMXAudioRecorderFailedNotification, engine->sender(),
                                         handler(&Implementation::endByFailure)),
                          center.observe(QMXAudioRecorderStoppedRecordingNotification, engine->sender(),
                                         handler(&Implementation::endIfStopped)),
                          center.observe(QMXAudioDeviceNominalSampleRateDidChangeNotification, plan.device,
                                         handler(&Implementation::endAtOtherRate)),
                          center.observe(QMXAudioHardwareDevicesDidChangeNotification, QMXAudioDevice::classObject(),
                                         handler(&Implementation::followDevice))});
        const auto after = [this](double seconds, void (Implementation::*act)()) {
            timers.push_back(Timer::scheduledTimer(seconds, false, handler(act)));
        };
        after(options.startTimeout, &Implementation::endIfSilent);
        if (options.seconds)
            after(*options.seconds, &Implementation::endByProgram);
    }

    Error gone() const { return {kAudioHardwareBadDeviceError, device.name() + " was unplugged", plan.path}; }

    void endByFailure() { end(engine->failure().value_or(gone())); }
    /// The unit stopped by itself.
    void endIfStopped()
    {
        if (state == State::recording && device.isAlive() && !engine->isRunning())
            end(engine->failure().value_or(
                Error(kAudioHardwareNotRunningError, device.name() + " stopped by itself", plan.path)));
    }
    /// A device recorder would go on at the wrong pitch. A unit converts.
    void endAtOtherRate()
    {
        if (engine->deviceRecorder() && device.isAlive() && device.sampleRate() != rate)
            end({kAudioDeviceUnsupportedFormatError, device.name() + " changed its sample rate", plan.path});
    }
    void endByProgram() { end({cancelledStatus, plan.path + ": Stopped", plan.path}); }
    void endIfSilent()
    {
        if (state == State::recording && device.isAlive() && engine->capturedFrames() == 0)
            end({kAudioHardwareNotRunningError, device.name() + " delivers no sound", plan.path});
    }

    /// A device was plugged in or unplugged.
    void followDevice()
    {
        if (state == State::ended || device.isAlive())
            return;
        if (options.whenUnplugged == WhenUnplugged::end)
            return end(gone());
        auto again = qmx::device(uid);
        if (!again)
            return;
        device = *std::move(again);
        if (options.meters)
            startMeter();
        if (state == State::paused)
            return; // resume() names it
        if (auto goes = goOn(); !goes)
            end(goes.error());
    }

    Result<void> goOn()
    {
        if (plan.device->deviceID() == device.id())
            return {};
        plan.device = QMXAudioDevice::deviceWithDeviceID(device.id());
        return engine->goOnWith(plan.device);
    }

    void startMeter()
    {
        if (auto started = Meter::start(device))
            meter.emplace(*std::move(started));
    }

    void end(Error why)
    {
        if (state == State::ended)
            return;
        state = State::ended;
        reason = std::move(why);
        observers = {};
        for (const auto& timer : timers)
            timer->invalidate();
        meter.reset();
        const auto failure = engine->stop();
        if (failure && reason->isCancelled())
            reason = failure;
        frames = framesOf(plan.path);
        if (engine->capturedFrames() == 0 && !reason->isCancelled())
            (void)FileManager::defaultManager().removeFileAtPath_handler(plan.path, nullptr); // nothing is lost
        tell();
    }

    /// Once there are both, an end and somebody who wants to know.
    void tell()
    {
        if (!reason || !callback)
            return;
        RunLoop::main().perform([weak = weak_from_this(), called = std::exchange(callback, {})] {
            if (const auto self = weak.lock())
                called(*self->reason);
        });
    }

    Device device; ///< the present one, after it has come back
    RecordingPlan plan;
    const RecorderOptions options;
    const std::unique_ptr<RecordingEngine> engine;
    const std::string uid;
    const Float64 rate; ///< of the captured frames
    State state = State::recording;
    Subscription observers;
    std::vector<std::shared_ptr<Timer>> timers;
    std::optional<Meter> meter;
    std::optional<Error> reason; ///< of the end
    SInt64 frames = 0;           ///< of the file, after the end
    std::function<void(const Error&)> callback;
};

Recorder::Recorder(std::shared_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Recorder::Recorder(Recorder&& other) noexcept = default;

Recorder& Recorder::operator=(Recorder&& other) noexcept
{
    implementation_.swap(other.implementation_);
    return *this;
}

Recorder::~Recorder()
{
    if (!implementation_)
        return;
    implementation_->callback = {};
    if (!withinMemory([&] { implementation_->endByProgram(); }))
        (void)withinMemory([&] { (void)implementation_->engine->stop(); }); // closing needs little
}

Result<Recorder> Recorder::start(const Device& device, const std::string& path, const RecorderOptions& options)
{
    return orNoMemory([&]() -> Result<Recorder> {
        auto plan = planOf(device, path, options);
        if (!plan)
            return plan.error();
        auto engine = engineFor(*plan, options);
        if (!engine)
            return engine.error();
        auto made = std::make_shared<Implementation>(device, *std::move(plan), options, *std::move(engine));
        if (auto started = made->engine->start(); !started)
            return started.error();
        made->watch();
        if (options.meters)
            made->startMeter();
        return Recorder(std::move(made));
    });
}

void Recorder::onEnd(std::function<void(const Error&)> callback)
{
    implementation_->callback = std::move(callback);
    implementation_->tell();
}

Result<void> Recorder::pause()
{
    if (implementation_->state != State::recording)
        return {};
    implementation_->state = State::paused;
    return orNoMemory([&] { return implementation_->engine->pause(); });
}

Result<void> Recorder::resume()
{
    if (implementation_->state == State::ended)
        return *implementation_->reason;
    if (implementation_->state == State::recording)
        return {};
    auto started = orNoMemory([&] {
        (void)implementation_->goOn(); // with a device that came back meanwhile; it is started below
        return implementation_->engine->start();
    });
    if (started)
        implementation_->state = State::recording;
    return started;
}

Result<RecordingSummary> Recorder::stop()
{
    return orNoMemory([&]() -> Result<RecordingSummary> {
        implementation_->endByProgram();
        if (implementation_->reason->isCancelled())
            return summary();
        return *implementation_->reason;
    });
}

bool Recorder::isRecording() const
{
    return implementation_->state == State::recording;
}

bool Recorder::hasEnded() const
{
    return implementation_->state == State::ended;
}

double Recorder::seconds() const
{
    const auto captured = static_cast<double>(implementation_->engine->capturedFrames());
    return implementation_->rate > 0 ? captured / implementation_->rate : 0;
}

RecordingSummary Recorder::summary() const
{
    const Implementation& self = *implementation_;
    const Float64 ratio = self.rate > 0 ? self.plan.format.stream.mSampleRate / self.rate : 1;
    const SInt64 captured = std::llround(static_cast<Float64>(self.engine->capturedFrames()) * ratio);
    UInt64 lost = self.engine->lostFrames();
    const bool hasFailed = self.reason && !self.reason->isCancelled();
    if (hasFailed && self.engine->unitRecorder()) // what waited for the disk is gone, too
        lost += static_cast<UInt64>(
            std::llround(static_cast<Float64>(std::max<SInt64>(captured - self.frames, 0)) / ratio));
    return {hasEnded() ? self.frames : captured, lost, self.plan.path, self.engine->lossText()};
}

std::vector<ChannelLevels> Recorder::levels()
{
    return implementation_->meter ? implementation_->meter->read() : std::vector<ChannelLevels>();
}

std::shared_ptr<QMXAudioRecorder> Recorder::object() const
{
    return implementation_->engine->deviceRecorder();
}

std::shared_ptr<QMXAUAudioRecorder> Recorder::unitObject() const
{
    return implementation_->engine->unitRecorder();
}

} // namespace qmx
