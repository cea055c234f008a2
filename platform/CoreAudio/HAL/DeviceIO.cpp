// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/DeviceIO.h"

#include "Foundation/Memory.h"
#include "Foundation/RealTime.h"
#include "Foundation/Threads/Retirement.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace qmx
{
namespace
{

[[gnu::tls_model("initial-exec")]] thread_local DeviceIO* ioOfThread = nullptr;

// The AudioBufferList of one direction, with a buffer for each stream.
class Buffers
{
public:
    explicit Buffers(const SectionDescription& section)
        : block_((offsetof(AudioBufferList, mBuffers) + section.streams.size() * sizeof(AudioBuffer)) /
                     sizeof(std::max_align_t) +
                 1)
    {
        for (const StreamDescription& stream : section.streams)
            channels_.push_back(stream.channels);
    }

    bool match(std::span<const IOBlock> blocks) const
    {
        return std::ranges::equal(channels_, blocks, {}, {}, &IOBlock::channels);
    }

    /// Points the list at `frames` frames of each block from `first` on. Called for each procedure, because a procedure
    /// may change the list.
    AudioBufferList* pointAt(std::span<const IOBlock> blocks, UInt32 first, UInt32 frames)
    {
        auto* const list = reinterpret_cast<AudioBufferList*>(block_.data());
        list->mNumberBuffers = static_cast<UInt32>(blocks.size());
        AudioBuffer* buffer = list->mBuffers;
        for (const IOBlock& block : blocks) {
            buffer->mNumberChannels = block.channels;
            buffer->mDataByteSize = frames * block.channels * static_cast<UInt32>(sizeof(Float32));
            buffer->mData = block.samples + std::size_t{first} * block.channels;
            ++buffer;
        }
        return list;
    }

private:
    std::vector<UInt32> channels_;
    std::vector<std::max_align_t> block_;
};

// The samples of a slice of one block.
std::span<Float32> slice(const IOBlock& block, UInt32 first, UInt32 frames)
{
    return {block.samples + std::size_t{first} * block.channels, std::size_t{frames} * block.channels};
}

void clear(std::span<const IOBlock> blocks, UInt32 first, UInt32 frames)
{
    for (const IOBlock& block : blocks)
        std::ranges::fill(slice(block, first, frames), 0.0F);
}

void mix(std::span<const IOBlock> sources, std::span<const IOBlock> sums, UInt32 first, UInt32 frames)
{
    for (std::size_t stream = 0; stream < sums.size(); ++stream) {
        const Float32* source = sources[stream].samples;
        for (Float32& sum : slice(sums[stream], first, frames))
            sum += *source++;
    }
}

AudioTimeStamp later(AudioTimeStamp time, UInt32 frames, Float64 sampleRate)
{
    time.mSampleTime += frames;
    if (sampleRate > 0)
        time.mHostTime += static_cast<UInt64>(std::llround(frames * 1e9 / sampleRate));
    return time;
}

} // namespace

struct DeviceIO::Procedure {
    AudioDeviceIOProc procedure;
    void* clientData;
    std::atomic<bool> isRunning{false};
    std::atomic<bool> isRemoved{false}; ///< the next list leaves it out
};

struct DeviceIO::List {
    std::vector<std::shared_ptr<Procedure>> procedures;
};

// Fixed from one start to the next: the streams, the maximum frames for a procedure, and room to mix.
struct DeviceIO::Layout {
    explicit Layout(const DeviceDescription& description)
        : input(description.input), output(description.output), maximumFrames(std::max(1U, description.bufferFrameSize))
    {
        for (const StreamDescription& stream : description.output.streams) {
            scratch.emplace_back(std::size_t{maximumFrames} * stream.channels);
            scratchBlocks.push_back({.channels = stream.channels, .samples = scratch.back().data()});
        }
    }
    Buffers input, output;
    UInt32 maximumFrames;
    std::vector<std::vector<Float32>> scratch;
    std::vector<IOBlock> scratchBlocks;
};

struct DeviceIO::IdleReport final : Retirable {
    std::function<void()> report;
    ~IdleReport() override
    {
        if (report)
            report();
    }
};

DeviceIO::DeviceIO(AudioDeviceID device, std::function<void()> becameIdle)
    : device_(device), becameIdle_(std::move(becameIdle)), list_(new List)
{
}

DeviceIO::~DeviceIO()
{
    delete list_.load();
    delete layout_.load();
    if (IdleReport* const report = idleReport_.load()) {
        report->report = {};
        delete report;
    }
}

DeviceIO* DeviceIO::ofCallingThread()
{
    return ioOfThread;
}

DeviceIO::Procedure* DeviceIO::find(const List& list, AudioDeviceIOProc procedure, void* clientData) const
{
    const auto found = std::ranges::find_if(list.procedures, [&](const auto& each) {
        return each->procedure == procedure && each->clientData == clientData && !each->isRemoved.load();
    });
    return found == list.procedures.end() ? nullptr : found->get();
}

// Waits for no cycle, so that callers may hold locks.
template <class Object> void DeviceIO::replace(std::atomic<Object*>& slot, std::unique_ptr<Object> next)
{
    Replacement replacement(cycles_);
    replacement.replace(slot, std::move(next));
    replacement.retire();
}

void DeviceIO::publish(std::unique_ptr<List> next)
{
    std::erase_if(next->procedures, [](const auto& each) { return each->isRemoved.load(); });
    replace(list_, std::unique_ptr<const List>(std::move(next)));
}

OSStatus DeviceIO::add(AudioDeviceIOProc procedure, void* clientData)
{
    const std::scoped_lock lock(mutex_);
    const List& list = *list_.load();
    if (find(list, procedure, clientData))
        return kAudioHardwareIllegalOperationError;
    auto next = std::make_unique<List>(list);
    next->procedures.push_back(std::make_shared<Procedure>());
    next->procedures.back()->procedure = procedure;
    next->procedures.back()->clientData = clientData;
    publish(std::move(next));
    return noErr;
}

OSStatus DeviceIO::remove(AudioDeviceIOProc procedure, void* clientData)
{
    {
        const std::scoped_lock lock(mutex_);
        const List& list = *list_.load();
        Procedure* const found = find(list, procedure, clientData);
        if (!found)
            return kAudioHardwareIllegalOperationError;
        stop(*found);
        found->isRemoved.store(true);
        (void)withinMemory([&] { publish(std::make_unique<List>(list)); }); // otherwise a later list leaves it out
    }
    waitForCycle();
    return noErr;
}

void DeviceIO::stopAll()
{
    const std::scoped_lock lock(mutex_);
    for (const auto& each : list_.load()->procedures)
        stop(*each);
}

OSStatus DeviceIO::markRunning(AudioDeviceIOProc procedure, void* clientData)
{
    const std::scoped_lock lock(mutex_);
    Procedure* const found = find(*list_.load(), procedure, clientData);
    if (!found)
        return kAudioHardwareIllegalOperationError;
    if (!found->isRunning.exchange(true))
        runningCount_.fetch_add(1);
    return noErr;
}

OSStatus DeviceIO::markStopped(AudioDeviceIOProc procedure, void* clientData)
{
    const std::scoped_lock lock(mutex_);
    Procedure* const found = find(*list_.load(), procedure, clientData);
    if (!found)
        return kAudioHardwareIllegalOperationError;
    stop(*found);
    return noErr;
}

bool DeviceIO::stop(Procedure& procedure) noexcept
{
    return procedure.isRunning.exchange(false) && runningCount_.fetch_sub(1) == 1;
}

bool DeviceIO::hasProcedures()
{
    const std::scoped_lock lock(mutex_);
    return !std::ranges::all_of(list_.load()->procedures, [](const auto& each) { return each->isRemoved.load(); });
}

void DeviceIO::prepare(const DeviceDescription& description)
{
    replace(layout_, std::make_unique<Layout>(description));
}

void DeviceIO::armIdleReport()
{
    const std::scoped_lock lock(mutex_);
    if (idleReport_.load())
        return;
    auto* const report = new IdleReport;
    report->report = [weak = weak_from_this()] {
        if (const auto io = weak.lock())
            io->becameIdle_();
    };
    idleReport_ = report;
}

OSStatus DeviceIO::markStoppedInCycle(AudioDeviceIOProc procedure, void* clientData) noexcept
{
    Procedure* const found = find(*list_.load(), procedure, clientData); // stays valid: this cycle keeps the list
    if (!found)
        return kAudioHardwareIllegalOperationError;
    if (stop(*found))
        reportIdle();
    return noErr;
}

OSStatus DeviceIO::removeInCycle(AudioDeviceIOProc procedure, void* clientData) noexcept
{
    Procedure* const found = find(*list_.load(), procedure, clientData);
    const OSStatus status = markStoppedInCycle(procedure, clientData);
    if (found)
        found->isRemoved.store(true);
    return status;
}

void DeviceIO::reportIdle() noexcept
{
    retire(idleReport_.exchange(nullptr));
}

void DeviceIO::runCycle(const IOCycle& cycle) noexcept
{
    const RealTimeScope realTime;
    const CallbackScope callback;
    ioOfThread = this;
    const Publication::Reader reader(cycles_);
    const List& list = *list_.load();
    Layout* const layout = layout_.load();
    if (layout && layout->input.match(cycle.input) && layout->output.match(cycle.output))
        for (UInt32 first = 0; first < cycle.frames; first += layout->maximumFrames)
            runSlice(list, *layout, cycle, first, std::min(layout->maximumFrames, cycle.frames - first));
    ioOfThread = nullptr;
}

void DeviceIO::runSlice(const List& list, Layout& layout, const IOCycle& cycle, UInt32 first, UInt32 frames) const
{
    const AudioTimeStamp inputTime = later(cycle.inputTime, first, cycle.sampleRate);
    const AudioTimeStamp outputTime = later(cycle.outputTime, first, cycle.sampleRate);
    clear(cycle.output, first, frames);
    bool isFirst = true; // the first procedure writes directly, the others are mixed in
    for (const auto& each : list.procedures) {
        if (!each->isRunning.load(std::memory_order_acquire))
            continue;
        const std::span<const IOBlock> blocks = isFirst ? cycle.output : std::span<const IOBlock>(layout.scratchBlocks);
        if (!isFirst)
            clear(blocks, 0, frames);
        each->procedure(device_, &cycle.now, layout.input.pointAt(cycle.input, first, frames), &inputTime,
                        layout.output.pointAt(blocks, isFirst ? first : 0, frames), &outputTime, each->clientData);
        if (!isFirst)
            mix(blocks, cycle.output, first, frames);
        isFirst = false;
    }
}

} // namespace qmx
