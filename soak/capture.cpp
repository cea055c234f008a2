// SPDX-License-Identifier: MIT
// Captures what a sink plays, on a private server, while another client changes the server's cycle and rate every
// second, and compares the count of frames with the clock: soak-capture FRAMES SECONDS. Frames may be lost, but never
// silently: it fails unless the frames seen and the gaps in the sample times add up to the clock's count. When the
// cycle or the rate changes, the server's clock jumps by itself; that is counted separately.
#include "AwaitedDevice.h"
#include "support/SoundServer.h"

#include <QMXCoreAudio/CoreAudio/AudioHardware.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace
{

struct Cycle {
    UInt64 hostTime = 0; ///< of its start
    Float64 frames = 0;
    Float64 gap = 0; ///< frames that are missing after it
};

// Written by the device's cycles, read after they have ended.
struct Capture {
    std::vector<Cycle> cycles;
    Float64 next = -1;
    std::atomic<UInt64> overloads{0};

    void add(const AudioTimeStamp& now, const AudioTimeStamp& inputTime, UInt32 frames)
    {
        if (!cycles.empty())
            cycles.back().gap += inputTime.mSampleTime - next;
        if ((cycles.empty() || cycles.back().hostTime != now.mHostTime) && cycles.size() < cycles.capacity())
            cycles.push_back({.hostTime = now.mHostTime});
        cycles.back().frames += frames;
        next = inputTime.mSampleTime + frames;
    }
};

struct Count {
    Float64 seen = 0, flagged = 0, byClock = 0, unaccounted = 0, jumped = 0; ///< frames
    int gaps = 0, sizeChanges = 0, rateChanges = 0;

    explicit Count(const std::vector<Cycle>& cycles)
    {
        std::vector<int> rates; // the clock's from each cycle to the next; 0 if it fits none
        for (std::size_t k = 0; k + 1 < cycles.size(); ++k)
            rates.push_back(fits(cycles, k, 48000) ? 48000 : fits(cycles, k, 44100) ? 44100 : 0);
        for (std::size_t k = 0; k < rates.size(); ++k) {
            seen += cycles[k].frames;
            flagged += cycles[k].gap;
            gaps += cycles[k].gap != 0 ? 1 : 0;
            sizeChanges += cycles[k].frames != cycles[k + 1].frames ? 1 : 0;
            addInterval(cycles, rates, k);
        }
    }

private:
    static Float64 counted(const std::vector<Cycle>& cycles, std::size_t k, int rate)
    {
        const auto passed = static_cast<SInt64>(cycles[k + 1].hostTime - cycles[k].hostTime);
        return std::round(static_cast<Float64>(passed) * 1e-9 * rate);
    }
    static bool fits(const std::vector<Cycle>& cycles, std::size_t k, int rate)
    {
        return counted(cycles, k, rate) == cycles[k].frames + cycles[k].gap;
    }
    void addInterval(const std::vector<Cycle>& cycles, const std::vector<int>& rates, std::size_t k)
    {
        const auto isKnown = [](int rate) { return rate != 0; };
        const auto next = std::find_if(rates.begin() + static_cast<std::ptrdiff_t>(k), rates.end(), isKnown);
        const int rate = next == rates.end() ? rate_ : *next;
        const Float64 difference = counted(cycles, k, rate) - cycles[k].frames - cycles[k].gap;
        byClock += counted(cycles, k, rate);
        bool isChanging = rate != rate_;
        for (std::size_t near = k < 3 ? 1 : k - 2; near < std::min(k + 4, rates.size()); ++near)
            isChanging = isChanging || cycles[near].frames != cycles[near - 1].frames ||
                         (rates[near] != 0 && rates[near] != rate_);
        if (!isChanging && difference != 0)
            std::printf("  cycle %zu: %.0f frames and a gap of %.0f, %.0f by the clock\n", k, cycles[k].frames,
                        cycles[k].gap, counted(cycles, k, rate));
        (isChanging ? jumped : unaccounted) += isChanging ? difference : std::abs(difference);
        if (rates[k] != 0)
            rateChanges += std::exchange(rate_, rates[k]) != rates[k] ? 1 : 0;
    }
    int rate_ = 48000; ///< of the latest interval that fitted one
};

OSStatus cycle(AudioDeviceID, const AudioTimeStamp* now, const AudioBufferList* input, const AudioTimeStamp* inputTime,
               AudioBufferList*, const AudioTimeStamp*, void* capture)
{
    static_cast<Capture*>(capture)->add(*now, *inputTime, input->mBuffers[0].mDataByteSize / (2 * sizeof(Float32)));
    return noErr;
}

OSStatus overload(AudioDeviceID, UInt32, Boolean, AudioDevicePropertyID, void* capture)
{
    ++static_cast<Capture*>(capture)->overloads;
    return noErr;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3)
        return 2;
    UInt32 frames = static_cast<UInt32>(std::atoi(arguments[1]));
    const int seconds = std::atoi(arguments[2]);
    qmx::test::SoundServer server;
    if (qmx::setAudioBackend(qmx::AudioBackend::pipeWire) != noErr)
        return 2;
    server.start();
    const auto device = awaitedDevice("test-sink.monitor");
    if (!device)
        return 2;
    const AudioDeviceID id = device->deviceID();
    Capture capture;
    capture.cycles.reserve(static_cast<std::size_t>(seconds + 60) * 48000 / 32);
    if (AudioDeviceSetProperty(id, nullptr, 0, true, kAudioDevicePropertyBufferFrameSize, sizeof frames, &frames) ||
        AudioDeviceAddPropertyListener(id, 0, true, kAudioDeviceProcessorOverload, overload, &capture) ||
        AudioDeviceAddIOProc(id, cycle, &capture) || AudioDeviceStart(id, cycle, &capture))
        return 2;
    const char* const changes[] = {"quantum 512", "rate 44100",   "quantum 128",
                                   "rate 48000",  "quantum 2048", "quantum 0"};
    for (int second = 0; second < seconds; ++second) {
        qmx::RunLoop::main().runFor(1);
        server.run(std::string("pw-metadata -n settings 0 clock.force-").append(changes[second % 6]));
    }
    if (AudioDeviceStop(id, cycle, &capture) || AudioDeviceRemoveIOProc(id, cycle, &capture))
        return 2;
    double load = 0;
    getloadavg(&load, 1);
    const Count count(capture.cycles);
    std::printf(
        "capture of %d s, %u frames: cycles %zu, frames seen %.0f, lost in gaps %.0f (%d gaps, %llu overloads), by the "
        "clock %.0f, unaccounted %.0f, clock's own jumps %.0f (%d size changes, %d rate changes), load %.1f\n",
        seconds, frames, capture.cycles.size(), count.seen, count.flagged, count.gaps,
        static_cast<unsigned long long>(capture.overloads), count.byClock, count.unaccounted, count.jumped,
        count.sizeChanges, count.rateChanges, load);
    const bool hasChanged = seconds < 6 || (count.sizeChanges >= 2 && count.rateChanges >= 1);
    return count.byClock > 0 && count.unaccounted == 0 && hasChanged ? 0 : 1;
}
