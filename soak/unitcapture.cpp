// SPDX-License-Identifier: MIT
// Records what a sink plays, on a private server, through an audio unit, while every sample names its frame:
//   soak-unitcapture SECONDS aiff    every sample is compared
//   soak-unitcapture SECONDS m4a     AAC: the sound is found at the start and at the end of the file
// Frames may be lost, but never silently: it fails unless those in the file and those that the recorder counted as
// dropped add up to what the sink played from the file's first frame to its last.
#include "AwaitedDevice.h"
#include "support/Slices.h"
#include "support/SoundServer.h"
#include "support/TimedSound.h"

#include <QMXCoreAudio/FileRelated/QMXExtAudioFile.h>
#include <QMXCoreAudio/Formats/QMXAudioStreamBasicDescription.h>
#include <QMXCoreAudio/Recording/QMXAUAudioRecorder.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace
{

using qmx::test::linearFormat;
using qmx::test::TimedSound;
using qmx::test::TimedTake;

constexpr UInt32 cycleFrames = 256;

/// The next frames of a file that was opened for reading in stereo floats.
std::vector<Float32> nextFrames(QMXExtAudioFile& file, UInt32 frames)
{
    std::vector<Float32> samples(std::size_t{frames} * 2);
    AudioBufferList list;
    list.mNumberBuffers = 1;
    list.mBuffers[0] = {2, static_cast<UInt32>(samples.size() * sizeof(Float32)), samples.data()};
    const OSStatus status = file.read_numberFrames(&list, &frames);
    samples.resize(status == noErr ? std::size_t{frames} * 2 : 0);
    return samples;
}

/// Which of the frames from `first` up to `end` a lossy copy begins with; none if it is another sound.
std::optional<SInt64> find(std::span<const Float32> stereo, SInt64 first, SInt64 end)
{
    std::vector<Float32> played(static_cast<std::size_t>(end - first) * 2 + stereo.size());
    TimedSound::fill(played, first);
    const Float32* const copy = stereo.data();
    Float64 energy = 0, best = 0;
    for (const Float32 copied : stereo)
        energy += Float64{copied} * copied;
    std::optional<SInt64> found;
    for (SInt64 frame = first; frame < end; ++frame) {
        const Float32* const candidate = played.data() + (frame - first) * 2;
        const Float32 product = std::inner_product(copy, copy + stereo.size(), candidate, 0.0F);
        if (product > best) {
            best = product;
            found = frame;
        }
    }
    const Float64 energyOfNoise = static_cast<Float64>(stereo.size()) / 3;
    return best > 0.4 * std::sqrt(energy * energyOfNoise) ? found : std::nullopt;
}

/// Plays the sound on a device, as the device's time passes.
class Sink
{
public:
    explicit Sink(AudioDeviceID device) : device_(device) {}
    ~Sink()
    {
        (void)AudioDeviceStop(device_, cycle, this); // each fails if it was never started
        (void)AudioDeviceRemoveIOProc(device_, cycle, this);
    }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    bool start()
    {
        return AudioDeviceAddIOProc(device_, cycle, this) == noErr && AudioDeviceStart(device_, cycle, this) == noErr;
    }
    SInt64 next() const { return next_; }

private:
    static OSStatus cycle(AudioDeviceID, const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                          AudioBufferList* output, const AudioTimeStamp* time, void* self)
    {
        const AudioBuffer& buffer = output->mBuffers[0];
        const std::size_t samples = buffer.mDataByteSize / sizeof(Float32);
        const auto frame = static_cast<SInt64>(time->mSampleTime);
        TimedSound::fill({static_cast<Float32*>(buffer.mData), samples}, frame);
        static_cast<Sink*>(self)->next_ = frame + static_cast<SInt64>(samples / 2);
        return noErr;
    }
    const AudioDeviceID device_;
    std::atomic<SInt64> next_{0};
};

/// Counts a device's reports of lost cycles.
class Overloads
{
public:
    explicit Overloads(AudioDeviceID device) : device_(device)
    {
        if (AudioDeviceAddPropertyListener(device_, 0, both, kAudioDeviceProcessorOverload, heard, this) != noErr)
            std::abort();
    }
    ~Overloads()
    {
        (void)AudioDeviceRemovePropertyListener(device_, 0, both, kAudioDeviceProcessorOverload, heard, this);
    }
    Overloads(const Overloads&) = delete;
    Overloads& operator=(const Overloads&) = delete;
    UInt64 count() const { return count_; }

private:
    static constexpr UInt8 both = kAudioPropertyWildcardSection;
    static OSStatus heard(AudioDeviceID, UInt32, Boolean, AudioDevicePropertyID, void* self)
    {
        ++static_cast<Overloads*>(self)->count_;
        return noErr;
    }
    const AudioDeviceID device_;
    std::atomic<UInt64> count_{0};
};

std::shared_ptr<QMXAUAudioRecorder> makeRecorder(const std::shared_ptr<QMXAudioDevice>& device, const std::string& path,
                                                 bool isLinear)
{
    AudioStreamBasicDescription format =
        linearFormat(32, 2, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian, 48000);
    if (!isLinear)
        format = {.mSampleRate = 48000, .mFormatID = kAudioFormatMPEG4AAC, .mChannelsPerFrame = 2};
    return QMXAUAudioRecorder::initWithInputDevice_outputPath_fileType_fileStreamFormat(
        device, path, isLinear ? kAudioFileAIFFType : kAudioFileM4AType, QMXAudioStreamBasicDescription(format));
}

/// What a file holds.
struct Recorded {
    SInt64 frames = 0;
    std::optional<SInt64> begin, end; ///< the sound's frames at its ends
    TimedTake take;                   ///< of linear samples

    /// Those that the sink played meanwhile.
    SInt64 byClock() const { return begin && end ? *end - *begin : 0; }

    /// `first` and `last` are the sound's frames when the recording was started and stopped.
    Recorded(const std::string& path, bool isLinear, SInt64 first, SInt64 last)
    {
        constexpr UInt32 part = 1024;
        constexpr SInt64 near = 1 << 17; // a machine that has no time stalls for seconds
        const auto floats = linearFormat(32, 2, kAudioFormatFlagIsFloat, 48000);
        const auto file = QMXExtAudioFile::initForReading_clientFormat(path, &floats);
        if (file->open() != noErr)
            return;
        frames = file->lengthInFrames();
        begin = find(nextFrames(*file, part), first - near, first + near);
        if (file->seek(frames - part) != noErr)
            return;
        end = find(nextFrames(*file, part), last - near, last + near);
        if (end)
            *end += part;
        if (!isLinear || file->seek(0) != noErr)
            return;
        for (std::vector<Float32> samples; !(samples = nextFrames(*file, 1 << 16)).empty();)
            take.add(samples);
    }
};

int record(int seconds, bool isLinear)
{
    qmx::test::SoundServer server;
    if (qmx::setAudioBackend(qmx::AudioBackend::pipeWire) != noErr)
        return 2;
    server.start();
    const auto device = awaitedDevice("test-sink"), monitor = awaitedDevice("test-sink.monitor");
    if (!device || !monitor)
        return 2;
    for (const auto& each : {device, monitor})
        if (AudioDeviceSetProperty(each->deviceID(), nullptr, 0, each == monitor, kAudioDevicePropertyBufferFrameSize,
                                   sizeof cycleFrames, &cycleFrames) != noErr)
            return 2;
    const Overloads ofSink(device->deviceID()), ofMonitor(monitor->deviceID());
    Sink sink(device->deviceID());
    const qmx::test::TemporaryFolder folder;
    const std::string path = folder.path("take");
    const auto recorder = makeRecorder(monitor, path, isLinear);
    if (!sink.start() || recorder->lastStatus() != noErr)
        return 2;

    // a fifth of a second of sound without a loss, after which the sound at the file's end is what the sink last played
    const auto passesWell = [&] {
        const auto losses = [&] { return ofSink.count() + ofMonitor.count() + recorder->droppedFrames(); };
        constexpr SInt64 enough = 9600;
        const UInt64 before = losses();
        const SInt64 start = sink.next();
        qmx::RunLoop::main().runFor(0.25);
        return losses() == before && sink.next() - start >= enough;
    };
    while (!passesWell())
        continue;
    const SInt64 first = sink.next();
    if (recorder->start() != noErr)
        return 2;
    qmx::RunLoop::main().runFor(seconds);
    while (!passesWell())
        continue;
    const SInt64 last = sink.next();
    const bool isClosed = recorder->stop() == noErr;

    const auto dropped = static_cast<SInt64>(recorder->droppedFrames());
    const Recorded recorded(path, isLinear, first, last);
    const TimedTake& take = recorded.take;
    double load = 0;
    getloadavg(&load, 1);
    std::printf("unit capture of %d s into %s: frames in the file %lld, dropped %lld, by the clock %lld, breaks %lld, "
                "not of the sound %lld (%lld samples changed), overloads of the sink %llu, of its monitor %llu, load "
                "%.1f\n",
                seconds, isLinear ? "AIFF" : "AAC", static_cast<long long>(recorded.frames),
                static_cast<long long>(dropped), static_cast<long long>(recorded.byClock()),
                static_cast<long long>(take.breaks), static_cast<long long>(take.frames - take.right),
                static_cast<long long>(take.changed), static_cast<unsigned long long>(ofSink.count()),
                static_cast<unsigned long long>(ofMonitor.count()), load);
    const bool isExact = recorded.byClock() == recorded.frames + dropped && recorded.byClock() % cycleFrames == 0;
    const bool isUnchanged =
        !isLinear || (take.frames == recorded.frames && take.changed == 0 && take.missing == dropped &&
                      (take.breaks == 0 || dropped > 0 || ofSink.count() > 0));
    return isClosed && recorder->lastStatus() == noErr && isExact && isUnchanged ? 0 : 1;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    const std::string type = argumentCount == 3 ? arguments[2] : "";
    return type == "aiff" || type == "m4a" ? record(std::atoi(arguments[1]), type == "aiff") : 2;
}
