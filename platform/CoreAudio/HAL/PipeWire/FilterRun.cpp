// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/FilterRun.h"

#include "CoreAudio/HAL/MonotonicClock.h"
#include "CoreAudio/HAL/PipeWire/RunProperties.h"
#include "Foundation/RealTime.h"
#include "vecLib/Interleaving.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qmx::pipewire
{
namespace
{

// The first blocks of a port may hold old sound of another program.
constexpr UInt32 cyclesToDrop = 2;

// When the next cycle begins; 0 for a clock that does not follow real time.
UInt64 endOf(const spa_io_clock& clock)
{
    return clock.next_nsec > clock.nsec && !(clock.flags & SPA_IO_CLOCK_FLAG_FREEWHEEL) ? clock.next_nsec : 0;
}

} // namespace

void RunClock::write(const ClockReading& reading) noexcept
{
    const UInt64 version = version_.load(std::memory_order_relaxed);
    version_.store(version + 1);
    hostTime_.store(reading.hostTime);
    sampleTime_.store(reading.sampleTime);
    rate_.store(reading.rate);
    version_.store(version + 2);
}

ClockReading RunClock::read() const noexcept
{
    for (;;) {
        const UInt64 version = version_.load();
        const ClockReading reading{
            .hostTime = hostTime_.load(), .sampleTime = sampleTime_.load(), .rate = rate_.load()};
        if (version % 2 == 0 && version_.load() == version)
            return reading;
    }
}

struct FilterRun::Link {
    Link(FilterRun& run, pw_proxy* made) : owner(run), proxy(made)
    {
        static const pw_proxy_events events = [] {
            pw_proxy_events filled{};
            filled.version = PW_VERSION_PROXY_EVENTS;
            filled.removed = removed;
            return filled;
        }();
        pw_proxy_add_listener(proxy, &hook, &events, this);
    }
    ~Link()
    {
        spa_hook_remove(&hook);
        pw_proxy_destroy(proxy);
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    static void removed(void* data)
    {
        auto& run = static_cast<Link*>(data)->owner;
        run.isBroken_ = true;
        run.changed_();
    }
    FilterRun& owner;
    pw_proxy* const proxy;
    spa_hook hook{};
};

bool FilterRun::Side::isLinked() const
{
    return std::ranges::any_of(buffers, [](const float* buffer) { return buffer != nullptr; });
}

FilterRun::FilterRun(Connection& connection, std::shared_ptr<DeviceIO> io, std::shared_ptr<RunSignals> signals,
                     std::function<void()> changed)
    : connection_(connection), io_(std::move(io)), signals_(std::move(signals)), changed_(std::move(changed))
{
}

FilterRun::~FilterRun()
{
    if (!context_)
        return;
    signals_->cycle.lock();
    {
        const Connection::Lock lock(connection_);
        takeDown();
    }
    signals_->cycle.unlock();
}

void FilterRun::takeDown()
{
    links_.clear();
    if (filter_) {
        spa_hook_remove(&filterHook_);
        pw_filter_destroy(filter_);
    }
    if (context_)
        pw_context_destroy(context_); // destroys the core too, and ends the thread that signals the event
    if (event_)
        pw_loop_destroy_source(connection_.loop(), event_);
    filter_ = nullptr;
    event_ = nullptr;
    context_ = nullptr;
    core_ = nullptr;
}

OSStatus FilterRun::start(const RunRequest& request)
{
    const Connection::Lock lock(connection_);
    const OSStatus status = startLocked(request);
    if (status)
        takeDown();
    return status;
}

OSStatus FilterRun::startLocked(const RunRequest& request)
{
    if (!connection_.isConnected())
        return kAudioHardwareBadDeviceError;
    if (!makeFilter(request) || !connection_.waitUntil([&] { return isBroken_ || portsAreThere(request); }) ||
        isBroken_ || !makeLinks(request))
        return kAudioHardwareUnspecifiedError;
    const auto hasRate = [&] { return clock_->read().rate == request.rate; };
    connection_.waitUntil([&] { return isBroken_ || connection_.isLost() || isSettled_ || hasRate(); });
    if (isBroken_ || !hasRate())
        return kAudioHardwareUnspecifiedError;
    isOpen_ = true;
    return noErr;
}

bool FilterRun::makeFilter(const RunRequest& request)
{
    static const pw_filter_events events = [] {
        pw_filter_events made{};
        made.version = PW_VERSION_FILTER_EVENTS;
        made.process = process;
        made.state_changed = stateChanged;
        return made;
    }();
    inputLatency_ = request.inputLatency;
    outputLatency_ = request.outputLatency;
    capturePorts_ = request.capturePorts;
    playbackPorts_ = request.playbackPorts;
    mostFrames_ = request.mostFrames;
    resumed_ = request.resumed;
    context_ = pw_context_new(connection_.loop(), pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0);
    core_ = context_ ? pw_context_connect(context_, nullptr, 0) : nullptr;
    filter_ = core_ ? pw_filter_new(core_, request.name.c_str(), runProperties(request)) : nullptr;
    event_ = pw_loop_add_event(connection_.loop(), cycleEvent, this);
    if (!filter_ || !event_ || !watchCycles())
        return false;
    pw_filter_add_listener(filter_, &filterHook_, &events, this);
    return addPorts(input_, true, request.capturePorts.size(), request.mostFrames) &&
           addPorts(output_, false, request.playbackPorts.size(), request.mostFrames) &&
           pw_filter_connect(filter_, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) == 0;
}

// Stops the cycles' thread meanwhile: it walks its list of hooks without a lock.
bool FilterRun::watchCycles()
{
    static const spa_loop_control_hooks hooks = [] {
        spa_loop_control_hooks made{};
        made.version = SPA_VERSION_LOOP_CONTROL_HOOKS;
        made.before = cycleEnded;
        return made;
    }();
    pw_data_loop* const thread = pw_context_get_data_loop(context_);
    if (pw_data_loop_stop(thread) != 0)
        return false;
    pw_loop_add_hook(pw_data_loop_get_loop(thread), &loopHook_, &hooks, this);
    return pw_data_loop_start(thread) == 0;
}

bool FilterRun::addPorts(Side& side, bool isInput, std::size_t channels, UInt32 mostFrames)
{
    for (std::size_t channel = 0; channel < channels; ++channel) {
        const std::string name = std::string(isInput ? "input_" : "output_").append(std::to_string(channel + 1));
        void* const port = pw_filter_add_port(
            filter_, isInput ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, 1,
            pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME, name.c_str(), nullptr),
            nullptr, 0);
        if (!port)
            return false;
        side.ports.push_back(port);
    }
    side.buffers.resize(channels);
    side.frames.resize(channels * mostFrames);
    if (channels > 0)
        side.blocks.push_back({.channels = static_cast<UInt32>(channels), .samples = side.frames.data()});
    return true;
}

bool FilterRun::portsAreThere(const RunRequest& request) const
{
    const std::uint32_t node = pw_filter_get_node_id(filter_);
    const ServerState& state = connection_.state();
    return node != SPA_ID_INVALID && state.portsOf(node, true, false).size() == request.capturePorts.size() &&
           state.portsOf(node, false, false).size() == request.playbackPorts.size();
}

bool FilterRun::makeLinks(const RunRequest& request)
{
    const std::uint32_t node = pw_filter_get_node_id(filter_);
    const auto inputs = connection_.state().portsOf(node, true, false);
    const auto outputs = connection_.state().portsOf(node, false, false);
    bool areMade = true;
    for (std::size_t channel = 0; channel < inputs.size(); ++channel)
        areMade = areMade && makeLink(request.capturePorts[channel], inputs[channel]);
    for (std::size_t channel = 0; channel < outputs.size(); ++channel)
        areMade = areMade && makeLink(outputs[channel], request.playbackPorts[channel]);
    return areMade;
}

bool FilterRun::makeLink(std::uint32_t from, std::uint32_t to)
{
    if (from == 0 || to == 0)
        return true;
    const std::string output = std::to_string(from), input = std::to_string(to);
    const spa_dict_item items[] = {{PW_KEY_LINK_OUTPUT_PORT, output.c_str()}, {PW_KEY_LINK_INPUT_PORT, input.c_str()}};
    const spa_dict properties{.flags = 0, .n_items = 2, .items = items};
    auto* const proxy = static_cast<pw_proxy*>(
        pw_core_create_object(core_, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties, 0));
    if (proxy)
        links_.push_back(std::make_unique<Link>(*this, proxy));
    return proxy;
}

bool FilterRun::serves(const RunRequest& request) const
{
    return !isBroken_ && capturePorts_ == request.capturePorts && playbackPorts_ == request.playbackPorts;
}

void FilterRun::ask(const RunRequest& request)
{
    if (!filter_)
        return;
    pw_properties* const properties = runProperties(request);
    pw_filter_update_properties(filter_, nullptr, &properties->dict);
    pw_properties_free(properties);
}

void FilterRun::stateChanged(void* data, pw_filter_state, pw_filter_state state, const char*)
{
    auto& self = *static_cast<FilterRun*>(data);
    if (state == PW_FILTER_STATE_ERROR)
        self.isBroken_ = true;
    self.connection_.signal();
}

void FilterRun::cycleEvent(void* data, std::uint64_t)
{
    auto& self = *static_cast<FilterRun*>(data);
    self.connection_.signal();
    self.changed_();
}

// --- On the cycles' thread

void FilterRun::process(void* data, spa_io_position* position)
{
    auto& self = *static_cast<FilterRun*>(data);
    if (!position)
        return;
    const spa_io_clock clock = position->clock; // the server changes its own while a cycle runs late
    if (self.runCycle(clock))
        pw_loop_signal_event(self.connection_.loop(), self.event_); // rare; takes no lock, writes to a descriptor
}

// Runs when the cycles' thread is about to wait: only then has the server certainly been handed the cycle's sound. The
// thread may be interrupted after the procedures have ended, and the server drops sound that arrives too late.
void FilterRun::cycleEnded(void* data)
{
    auto& self = *static_cast<FilterRun*>(data);
    // Threads that wait for this one run the hook too.
    if (!pw_data_loop_in_thread(pw_context_get_data_loop(self.context_)))
        return;
    const UInt64 due = std::exchange(self.due_, 0);
    if (due == 0 || monotonicTime() <= due)
        return;
    self.signals_->isOverloaded = true;
    pw_loop_signal_event(self.connection_.loop(), self.event_);
}

// Returns whether the connection's thread has something to report.
bool FilterRun::runCycle(const spa_io_clock& clock) noexcept
{
    const RealTimeScope realTime;
    const auto frames = static_cast<UInt32>(std::min<std::uint64_t>(clock.duration, mostFrames_));
    for (Side* const side : {&input_, &output_})
        for (std::size_t channel = 0; channel < side->ports.size(); ++channel)
            side->buffers[channel] = static_cast<float*>(pw_filter_get_dsp_buffer(side->ports[channel], frames));
    for (float* const buffer : output_.buffers)
        if (buffer)
            std::fill_n(buffer, frames, 0.0F);
    if (frames == 0 || clock.rate.denom == 0 || !(input_.isLinked() || output_.isLinked()))
        return false;
    if (isRepeated(clock)) {
        if (isSettled_ && isOpen_.load()) {
            writeOutput(frames);
            due_ = endOf(clock);
        }
        return false;
    }
    const bool hasNews = keepTime(clock);
    if (!isSettled_) {
        isSettled_ = ++cyclesSeen_ > cyclesToDrop;
        return hasNews || isSettled_;
    }
    if (isOpen_.load() && signals_->cycle.tryLock()) {
        runProcedures(frames, clock);
        due_ = endOf(clock);
        signals_->cycle.unlock();
    }
    return hasNews;
}

// A device that lost its ports for a while goes on as if the cycles in between had been missed.
void FilterRun::beginTime(const spa_io_clock& clock) noexcept
{
    lead_ = static_cast<UInt32>(clock.duration);
    if (!resumed_)
        return;
    const auto passed = static_cast<Float64>(static_cast<SInt64>(clock.nsec - resumed_->hostTime));
    clockOffset_ =
        std::llround(resumed_->sampleTime + passed * clock.rate.denom * 1e-9) - static_cast<SInt64>(clock.position);
    signals_->isOverloaded = true;
}

// After a late wake-up the same cycle is announced twice: the clock is at the next cycle already, and that comes again.
bool FilterRun::isRepeated(const spa_io_clock& clock) const noexcept
{
    return rate_ != 0 && clock.id == clockID_ && clock.position == position_;
}

// Keeps the device's sample time running when the server changes its clock, whose positions differ.
bool FilterRun::keepTime(const spa_io_clock& clock) noexcept
{
    const bool isFirst = rate_ == 0;
    const bool isOtherClock = !isFirst && clock.id != clockID_;
    if (isFirst)
        beginTime(clock);
    if (isOtherClock)
        clockOffset_ += static_cast<SInt64>(expected_) - static_cast<SInt64>(clock.position);
    const bool isGap = !isFirst && !isOtherClock && clock.position != expected_;
    const bool isOtherRate = clock.rate.denom != rate_;
    clockID_ = clock.id;
    rate_ = clock.rate.denom;
    position_ = clock.position;
    expected_ = clock.position + clock.duration;
    if (isGap)
        signals_->isOverloaded = true;
    clock_->write({.hostTime = clock.nsec,
                   .sampleTime = static_cast<Float64>(static_cast<SInt64>(clock.position) + clockOffset_),
                   .rate = static_cast<Float64>(rate_)});
    return isGap || isOtherRate; // true the first time, too
}

void FilterRun::runProcedures(UInt32 frames, const spa_io_clock& clock) noexcept
{
    interleave(input_.buffers, input_.frames.data(), input_.buffers.size(), frames);
    const Float64 now = static_cast<Float64>(static_cast<SInt64>(clock.position) + clockOffset_);
    const auto stamp = [&](Float64 distance) {
        AudioTimeStamp time;
        time.mSampleTime = now + distance;
        time.mHostTime = static_cast<UInt64>(static_cast<SInt64>(clock.nsec) + std::llround(distance * 1e9 / rate_));
        time.mRateScalar = 1;
        time.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
        return time;
    };
    // The lead is fixed even if the cycle size changes, so that each block starts where the previous one ended.
    io_->runCycle({.frames = frames,
                   .sampleRate = static_cast<Float64>(rate_),
                   .now = stamp(0),
                   .inputTime = stamp(-static_cast<Float64>(lead_) - inputLatency_),
                   .outputTime = stamp(static_cast<Float64>(lead_) + outputLatency_),
                   .input = input_.blocks,
                   .output = output_.blocks});

    writeOutput(frames);
}

void FilterRun::writeOutput(UInt32 frames) noexcept
{
    deinterleave(output_.frames.data(), output_.buffers.size(), output_.buffers, frames);
}

} // namespace qmx::pipewire
