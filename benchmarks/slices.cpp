// SPDX-License-Identifier: MIT
// Compares the slices of 512 stereo frames that units render, at ratios that stand and that move, with the best
// qualities of three libraries, all in turn. Of each one the counters are
//   NAME        speed in times real time, by processor time; of the best of several turns
//   NAME_worst  the same of the slice that took longest in that turn
//   NAME_dB     at a ratio that stands: what deviates from a tone of 20 kHz in the output, relative to it
//   NAME_level  ... and the level of that tone, in dB
#include <QMXCoreAudio/AudioUnit/AudioUnit.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <samplerate.h>
#include <span>
#include <speex/speex_resampler.h>
#include <string>
#include <time.h>
#include <utility>
#include <vector>
#include <zita-resampler/resampler.h>
#include <zita-resampler/vresampler.h>

namespace
{

constexpr UInt32 channels = 2, sliceFrames = 512, sourceFrames = 8192;
constexpr double tone = 20000, level = 0.5;
constexpr double turn = 2 * std::numbers::pi;

/// An endless tone.
class Source
{
public:
    explicit Source(double rate)
        : period_(static_cast<std::size_t>(rate / 100)), samples_(channels * (period_ + sourceFrames))
    {
        for (std::size_t i = 0; i < samples_.size(); ++i)
            samples_[i] = static_cast<float>(level * std::sin(turn * tone / rate * static_cast<double>(i / channels)));
    }
    /// At least `sourceFrames` frames.
    float* next() { return &samples_[channels * at_]; }
    void take(std::size_t frames) { at_ = (at_ + frames) % period_; }

private:
    std::size_t period_, at_ = 0;
    std::vector<float> samples_;
};

/// Makes slices at ratios of output frames per input frame.
class Converter
{
public:
    explicit Converter(double inputRate) : source_(inputRate) {}
    virtual ~Converter() = default;
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    virtual const char* name() const = 0;
    virtual void render(double ratio) = 0;
    std::span<const float> slice() const { return slice_; }
    bool isGood() const { return isGood_; }

protected:
    Source source_;
    std::vector<float> slice_ = std::vector<float>(channels * sliceFrames);
    bool isGood_ = true;
};

class RenderedUnit : public Converter
{
public:
    RenderedUnit(double from, double to, bool moves, UInt32 quality) : Converter(from), moves_(moves)
    {
        const ComponentDescription description{kAudioUnitType_FormatConverter,
                                               moves ? kAudioUnitSubType_Varispeed : kAudioUnitSubType_AUConverter,
                                               kAudioUnitManufacturer_Apple};
        const AURenderCallbackStruct input{give, this};
        isGood_ = OpenAComponent(FindNextComponent(nullptr, &description), &unit_) == noErr &&
                  set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, floatsAt(from)) &&
                  set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, floatsAt(to)) &&
                  set(kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, quality) &&
                  set(kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, input) &&
                  AudioUnitInitialize(unit_) == noErr;
    }
    ~RenderedUnit() override { (void)CloseComponent(unit_); }

    const char* name() const override { return "unit"; }
    void render(double ratio) override
    {
        if (moves_)
            isGood_ = AudioUnitSetParameter(unit_, kVarispeedParam_PlaybackRate, kAudioUnitScope_Global, 0,
                                            static_cast<Float32>(1 / ratio), 0) == noErr &&
                      isGood_;
        AudioBufferList list{1, {{channels, static_cast<UInt32>(slice_.size() * sizeof(float)), slice_.data()}}};
        const AudioTimeStamp time;
        isGood_ = AudioUnitRender(unit_, nullptr, &time, 0, sliceFrames, &list) == noErr && isGood_;
    }

private:
    static AudioStreamBasicDescription floatsAt(double rate)
    {
        constexpr UInt32 bytes = channels * sizeof(Float32);
        return {rate,
                kAudioFormatLinearPCM,
                kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
                bytes,
                1,
                bytes,
                channels,
                32,
                0};
    }
    static OSStatus give(void* self, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32 frames,
                         AudioBufferList* data)
    {
        Source& source = static_cast<RenderedUnit*>(self)->source_;
        data->mBuffers[0].mData = source.next();
        source.take(frames);
        return noErr;
    }
    template <class T> bool set(AudioUnitPropertyID property, AudioUnitScope scope, const T& value)
    {
        return AudioUnitSetProperty(unit_, property, scope, 0, &value, sizeof value) == noErr;
    }

    bool moves_;
    AudioUnit unit_ = nullptr;
};

class LibSampleRate : public Converter
{
public:
    using Converter::Converter;
    const char* name() const override { return "libsamplerate"; }
    void render(double ratio) override
    {
        for (std::size_t made = 0; isGood_ && made < sliceFrames;) {
            SRC_DATA data{};
            data.data_in = source_.next();
            data.data_out = &slice_[channels * made];
            data.input_frames = sourceFrames;
            data.output_frames = static_cast<long>(sliceFrames - made);
            data.src_ratio = ratio;
            isGood_ = state_ && src_process(state_.get(), &data) == 0;
            source_.take(static_cast<std::size_t>(data.input_frames_used));
            made += static_cast<std::size_t>(data.output_frames_gen);
        }
    }

private:
    struct Release {
        void operator()(SRC_STATE* state) const { src_delete(state); }
    };
    std::unique_ptr<SRC_STATE, Release> state_{src_new(SRC_SINC_BEST_QUALITY, channels, nullptr)};
};

class SpeexDSP : public Converter
{
public:
    SpeexDSP(double from, double to)
        : Converter(from), state_(speex_resampler_init(channels, static_cast<UInt32>(from), static_cast<UInt32>(to),
                                                       SPEEX_RESAMPLER_QUALITY_MAX, nullptr)),
          ratio_(to / from)
    {
    }
    const char* name() const override { return "speexdsp"; }
    void render(double ratio) override
    {
        constexpr UInt32 parts = 50000; // the library fails at fractions of larger numbers
        if (std::exchange(ratio_, ratio) != ratio)
            isGood_ = speex_resampler_set_rate_frac(state_.get(), parts, static_cast<UInt32>(parts * ratio), 44100,
                                                    48000) == 0;
        for (UInt32 made = 0; isGood_ && made < sliceFrames;) {
            UInt32 taken = sourceFrames, room = sliceFrames - made;
            isGood_ = state_ && speex_resampler_process_interleaved_float(state_.get(), source_.next(), &taken,
                                                                          &slice_[channels * made], &room) == 0;
            source_.take(taken);
            made += room;
        }
    }

private:
    struct Release {
        void operator()(SpeexResamplerState* state) const { speex_resampler_destroy(state); }
    };
    std::unique_ptr<SpeexResamplerState, Release> state_;
    double ratio_;
};

/// One of the two resamplers of the library, for ratios that stand and for those that move.
template <class ZitaResampler> class Zita : public Converter
{
public:
    using Converter::Converter;
    const char* name() const override { return "zita"; }
    void render(double ratio) override
    {
        setRatio(ratio);
        resampler_.out_count = sliceFrames;
        resampler_.out_data = slice_.data();
        while (isGood_ && resampler_.out_count > 0) {
            resampler_.inp_count = sourceFrames;
            resampler_.inp_data = source_.next();
            isGood_ = resampler_.process() == 0;
            source_.take(sourceFrames - resampler_.inp_count);
        }
    }

protected:
    static constexpr UInt32 halfLength = 96; // of the filter, the longest
    virtual void setRatio(double) {}

    ZitaResampler resampler_;
};

class ZitaStanding : public Zita<Resampler>
{
public:
    ZitaStanding(double from, double to) : Zita(from)
    {
        isGood_ = resampler_.setup(static_cast<UInt32>(from), static_cast<UInt32>(to), channels, halfLength) == 0;
    }
};

class ZitaMoving : public Zita<VResampler>
{
public:
    /// Its ratio falls no more than 5 percent below the one that it is made for.
    ZitaMoving(double from, double leastRatio) : Zita(from), madeFor_(leastRatio)
    {
        isGood_ = resampler_.setup(madeFor_, channels, halfLength) == 0;
    }

private:
    void setRatio(double ratio) override { resampler_.set_rratio(ratio / madeFor_); }

    double madeFor_;
};

std::unique_ptr<Converter> makeZita(double from, double to, double part)
{
    if (part != 0)
        return std::make_unique<ZitaMoving>(from, to / from * (1 - part));
    return std::make_unique<ZitaStanding>(from, to);
}

/// Processor time of this thread: render threads are preferred, a benchmark is not.
double secondsOfProcessor()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

struct Seconds {
    double mean = 1e9, worst = 1e9; ///< of a slice
};

/// Of a slice at each of `ratios`, one after the other.
Seconds secondsOfSlice(Converter& converter, const std::vector<double>& ratios)
{
    Seconds seconds{0, 0};
    for (const double ratio : ratios) {
        const double start = secondsOfProcessor();
        converter.render(ratio);
        const double used = secondsOfProcessor() - start;
        seconds.mean += used / static_cast<double>(ratios.size());
        seconds.worst = std::max(seconds.worst, used);
    }
    return seconds;
}

struct Purity {
    double level = 0, residue = 0; ///< in dB, the latter relative to the tone
};

/// The tone in the output by least squares, and what is left without it.
Purity purityOf(Converter& converter, double ratio, double outputRate)
{
    std::vector<double> sound;
    for (int slice = 0; slice < 50; ++slice) {
        converter.render(ratio);
        for (std::size_t i = 0; i < sliceFrames && slice >= 10; ++i)
            sound.push_back(double{converter.slice()[channels * i]});
    }
    const auto angle = [&](std::size_t i) { return turn * tone / outputRate * static_cast<double>(i); };
    double cc = 0, cs = 0, ss = 0, xc = 0, xs = 0;
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const double c = std::cos(angle(i)), s = std::sin(angle(i));
        cc += c * c, cs += c * s, ss += s * s;
        xc += sound[i] * c, xs += sound[i] * s;
    }
    const double part = cc * ss - cs * cs, a = (xc * ss - xs * cs) / part, b = (xs * cc - xc * cs) / part;
    double left = 0;
    for (std::size_t i = 0; i < sound.size(); ++i)
        left += std::pow(sound[i] - a * std::cos(angle(i)) - b * std::sin(angle(i)), 2);
    const double power = (a * a + b * b) / 2;
    return {10 * std::log10(2 * power / (level * level)),
            10 * std::log10(left / static_cast<double>(sound.size()) / power)};
}

/// From one rate to another; `part` is how much of it the ratio moves up and down.
void slices(benchmark::State& state, double from, double to, double part, UInt32 quality)
{
    std::array<std::unique_ptr<Converter>, 4> converters{
        std::make_unique<RenderedUnit>(from, to, part != 0, quality), std::make_unique<LibSampleRate>(from),
        std::make_unique<SpeexDSP>(from, to), makeZita(from, to, part)};
    std::array<Seconds, converters.size()> best;
    std::vector<double> ratios(20);
    for (std::size_t i = 0; i < ratios.size(); ++i)
        ratios[i] = to / from * (1 + part * std::sin(static_cast<double>(i)));
    for (auto _ : state)
        for (std::size_t i = 0; i < converters.size(); ++i) {
            const Seconds seconds = secondsOfSlice(*converters[i], ratios);
            if (seconds.mean < best[i].mean)
                best[i] = seconds;
        }
    const double cycle = sliceFrames / to;
    for (std::size_t i = 0; i < converters.size(); ++i) {
        const std::string name = converters[i]->name();
        if (!converters[i]->isGood())
            state.SkipWithError((name + " failed").c_str());
        state.counters[name] = cycle / best[i].mean;
        state.counters[name + "_worst"] = cycle / best[i].worst;
        if (part == 0) {
            const Purity purity = purityOf(*converters[i], to / from, to);
            state.counters[name + "_dB"] = purity.residue;
            state.counters[name + "_level"] = purity.level;
        }
    }
}
constexpr int turns = 15;
BENCHMARK_CAPTURE(slices, From44100To48000, 44100, 48000, 0, 127)->Iterations(turns);
BENCHMARK_CAPTURE(slices, From48000To44100, 48000, 44100, 0, 127)->Iterations(turns);
BENCHMARK_CAPTURE(slices, From44100To96000, 44100, 96000, 0, 127)->Iterations(turns);
BENCHMARK_CAPTURE(slices, From96000To44100, 96000, 44100, 0, 127)->Iterations(turns);
BENCHMARK_CAPTURE(slices, From44100To48000AtMediumQuality, 44100, 48000, 0, 64)->Iterations(turns);
BENCHMARK_CAPTURE(slices, From44100To48000AtLowQuality, 44100, 48000, 0, 0)->Iterations(turns);
BENCHMARK_CAPTURE(slices, MovingAround44100To48000, 44100, 48000, 0.001, 127)->Iterations(turns);
BENCHMARK_CAPTURE(slices, MovingAround48000To44100, 48000, 44100, 0.001, 127)->Iterations(turns);
BENCHMARK_CAPTURE(slices, MovingAround96000, 96000, 96000, 0.001, 127)->Iterations(turns);
BENCHMARK_CAPTURE(slices, MovingAroundAHalf, 96000, 48000, 0.1, 127)->Iterations(turns);

} // namespace
