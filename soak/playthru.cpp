// SPDX-License-Identifier: MIT
// Long play-through.
//   soak-playthru drift SECONDS PPM on|off   of a sine between virtual devices whose clocks go by PPM millionths faster
//       (input) and slower (output), with or without correction: with it nothing may be refused, no sample may step,
//       and the distance stays within a millisecond; without it the refusals begin when arithmetic says
//   soak-playthru server SECONDS             between two nodes of a private sound server whose cycle another client
//       changes every five seconds; the sound has to come back each time
#include "AwaitedDevice.h"
#include "support/SoundServer.h"

#include <QMXCoreAudio/CoreAudio/VirtualHardware.h>
#include <QMXCoreAudio/PlayThru/ComplexPlayThru.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <numbers>
#include <string>
#include <string_view>

namespace
{

constexpr Float64 rate = 44100, frequency = 100;
constexpr UInt32 cycleFrames = 512;
constexpr Float64 twoPi = 2 * std::numbers::pi;

/// What an output is given: its steepest bend, and its phase against the input's at the same instant.
struct Listener {
    Float64 inputPerOutput; ///< frames of the clocks
    Float64 last = 0, lastButOne = 0, sharpest = 0, sine = 0, cosine = 0;
    bool hasStarted = false;

    void hear(Float64 sample, SInt64 frame)
    {
        if (hasStarted)
            sharpest = std::max(sharpest, std::abs(sample - 2 * last + lastButOne));
        lastButOne = last;
        last = sample;
        const Float64 angle = twoPi * frequency * static_cast<Float64>(frame) * inputPerOutput / rate;
        sine += sample * std::sin(angle);
        cosine += sample * std::cos(angle);
    }
    /// Seconds, but for whole periods, by which it is late; since the last call.
    Float64 distance()
    {
        const Float64 phase = std::atan2(-cosine, sine) / twoPi;
        sine = cosine = 0;
        return phase / frequency;
    }
};

AudioDeviceID add(qmx::VirtualHardware& hardware, const char* uid, UInt32 inputs, UInt32 outputs)
{
    return hardware.addDevice(qmx::VirtualHardware::standardDevice(uid, uid, inputs, outputs));
}

/// Seconds until the ring of 16384 frames holds nothing for the output, from equal phases on.
Float64 firstRefusal(Float64 ppm, Float64 offset)
{
    const Float64 whole = ppm < 0 ? std::floor(offset / cycleFrames) // the input falls behind: until it is too late
                                  : std::floor((16384 - cycleFrames - offset) / cycleFrames) + 1; // until overwritten
    return whole * cycleFrames / (2 * std::abs(ppm) * 1e-6 * rate);
}

int drift(int seconds, Float64 ppm, bool isCorrected)
{
    auto& hardware = qmx::VirtualHardware::shared();
    hardware.reset();
    const AudioDeviceID input = add(hardware, "in", 1, 0), output = add(hardware, "out", 0, 1);
    Listener listener{(1 + ppm * 1e-6) / (1 - ppm * 1e-6)};
    const auto capture = [](Float32* samples, UInt32 frames, UInt32, SInt64 first) {
        for (UInt32 i = 0; i < frames; ++i)
            samples[i] =
                static_cast<Float32>(0.5 * std::sin(twoPi * frequency * static_cast<Float64>(first + i) / rate));
    };
    const auto hear = [&listener](const Float32* samples, UInt32 frames, UInt32, SInt64 first) {
        for (UInt32 i = 0; i < frames; ++i)
            listener.hear(static_cast<Float64>(samples[i]), first + i);
    };
    OSStatus status = noErr;
    const auto engine = ComplexPlayThru::make(input, output, status);
    if (!engine || hardware.setInput(input, capture) || hardware.setOutput(output, hear) || engine->Start() ||
        !hardware.advanceCycles(output, 1) || hardware.setClockDrift(input, ppm) ||
        hardware.setClockDrift(output, -ppm))
        return 2;
    engine->SetDriftCorrection(isCorrected);
    hardware.advance(500000000);
    listener.hasStarted = true;
    listener.distance();

    Float64 farthest = 0, start = 0, refusal = 0;
    for (int second = 0; second < seconds; ++second) {
        hardware.advance(1000000000);
        const Float64 distance = listener.distance();
        start = second == 0 ? distance : start;
        farthest = std::max(farthest, std::abs(std::remainder(distance - start, 1 / frequency)));
        refusal = refusal == 0 && engine->GetRefusedFetches() > 0 ? second + 1.5 : refusal;
    }
    const Float64 bend = 0.5 * std::pow(twoPi * frequency / rate, 2);
    std::printf("drift of %g ppm against %g for %d s, correction %s: refused %lu, farthest %.3f ms, sharpest bend %.3f "
                "of the sine's, rate %.7f\n",
                ppm, -ppm, seconds, isCorrected ? "on" : "off", engine->GetRefusedFetches(), farthest * 1e3,
                listener.sharpest / bend, static_cast<double>(engine->GetRate()));
    if (isCorrected)
        return engine->GetRefusedFetches() == 0 && farthest < 1e-3 && listener.sharpest < 1.05 * bend ? 0 : 1;
    const Float64 expected = firstRefusal(ppm, engine->ComputeThruOffset());
    std::printf("  first refusal after %.1f s, by arithmetic after %.1f s\n", refusal, expected);
    return seconds < expected ? refusal != 0 : std::abs(refusal - expected) > 2;
}

constexpr Float32 level = 0.25F; // steady: what is missing is silence

OSStatus speak(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
               AudioBufferList* output, const AudioTimeStamp*, void*)
{
    auto* const samples = static_cast<Float32*>(output->mBuffers[0].mData);
    std::fill_n(samples, output->mBuffers[0].mDataByteSize / sizeof(Float32), level);
    return noErr;
}

struct Heard {
    std::atomic<UInt64> sound = 0, silence = 0; ///< samples
};

OSStatus hear(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList* input, const AudioTimeStamp*,
              AudioBufferList*, const AudioTimeStamp*, void* heard)
{
    auto& self = *static_cast<Heard*>(heard);
    const auto* const samples = static_cast<const Float32*>(input->mBuffers[0].mData);
    for (UInt32 i = 0; i < input->mBuffers[0].mDataByteSize / sizeof(Float32); ++i)
        ++(std::abs(samples[i] - level) < 0.01F ? self.sound : self.silence);
    return noErr;
}

int server(int seconds)
{
    qmx::test::SoundServer server;
    if (qmx::setAudioBackend(qmx::AudioBackend::pipeWire) != noErr)
        return 2;
    server.start();
    server.plugIn("thru-out");
    const auto id = [](const char* uid) {
        const auto device = awaitedDevice(uid);
        return device ? device->deviceID() : kAudioDeviceUnknown;
    };
    const AudioDeviceID input = id("test-source"), output = id("thru-out");
    const AudioDeviceID sink = id("test-sink"), monitor = id("thru-out.monitor");
    Heard heard;
    OSStatus status = noErr;
    const auto engine = ComplexPlayThru::make(input, output, status);
    if (!engine || AudioDeviceAddIOProc(sink, speak, &heard) || AudioDeviceStart(sink, speak, &heard) ||
        AudioDeviceAddIOProc(monitor, hear, &heard) || AudioDeviceStart(monitor, hear, &heard) || engine->Start())
        return 2;
    engine->SetDriftCorrection(true);
    const char* const cycles[] = {"2048", "256", "1024", "512"};
    const auto percentOfSound = [&heard] {
        heard.sound = heard.silence = 0;
        qmx::RunLoop::main().runFor(3);
        const auto sound = static_cast<Float64>(heard.sound), silence = static_cast<Float64>(heard.silence);
        return static_cast<int>(100 * sound / std::max(1.0, sound + silence));
    };
    constexpr int enough = 50, attempts = 10; // a busy machine loses cycles
    int worst = 100;
    const std::clock_t start = std::clock();
    for (int second = 0; second + 5 <= seconds; second += 5) {
        server.run(std::string("pw-metadata -n settings 0 clock.force-quantum ").append(cycles[second / 5 % 4]));
        qmx::RunLoop::main().runFor(2);
        int part = percentOfSound();
        for (int attempt = 1; part <= enough && attempt < attempts; ++attempt)
            part = percentOfSound();
        std::printf("  cycle %s: %d %% sound, refused %lu\n", cycles[second / 5 % 4], part,
                    engine->GetRefusedFetches());
        worst = std::min(worst, part);
    }
    const double used = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    std::printf("server for %d s: at least %d %% sound after each change, refused %lu, %.2f %% of a processor in all\n",
                seconds, worst, engine->GetRefusedFetches(), 100 * used / seconds);
    (void)engine->Stop();                               // the program ends
    (void)AudioDeviceRemoveIOProc(sink, speak, &heard); // the program ends
    (void)AudioDeviceRemoveIOProc(monitor, hear, &heard);
    return worst > enough ? 0 : 1;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    const std::string_view mode = argumentCount > 1 ? arguments[1] : "";
    const int seconds = argumentCount > 2 ? std::atoi(arguments[2]) : 0;
    if (mode == "drift" && argumentCount == 5)
        return drift(seconds, std::atof(arguments[3]), arguments[4] == std::string_view("on"));
    return mode == "server" && argumentCount == 3 ? server(seconds) : 2;
}
