// SPDX-License-Identifier: MIT
#include "support/Synthesizer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>

namespace example
{
namespace
{

/// One note. Keys are semitones, 69 is the A of 440 Hz. `pan` is from 0 (left) to 1 (right).
struct Note {
    double start = 0;  ///< seconds
    double length = 0; ///< seconds
    int key = 69;
    double gain = 0.1;
    double pan = 0.5;
};

double frequencyOf(int key)
{
    return 440 * std::exp2((key - 69) / 12.0);
}

/// A sine, computed by rotation instead of a call of std::sin for each sample.
class Oscillator
{
public:
    explicit Oscillator(double frequency)
        : factor_(2 * std::cos(2 * std::numbers::pi * frequency / synthesizerRate)),
          before_(-std::sin(2 * std::numbers::pi * frequency / synthesizerRate))
    {
    }

    double next()
    {
        const double value = now_;
        now_ = factor_ * now_ - before_;
        before_ = value;
        return value;
    }

private:
    double factor_;
    double before_;
    double now_ = 0;
};

class Score
{
public:
    explicit Score(double seconds) : samples_(2 * static_cast<std::size_t>(seconds * synthesizerRate)) {}

    /// A plucked string: bright at first, its high partials decay faster.
    void pluck(const Note& note)
    {
        for (int partial = 1; partial <= 6; ++partial)
            add(note, partial, 1.0 / (partial * std::sqrt(partial)), 0.004, 1.4 / partial);
    }

    /// A pad: a slow swell, two partials.
    void hold(const Note& note)
    {
        for (int partial = 1; partial <= 2; ++partial)
            add(note, partial, 0.6 / partial, note.length * 0.3, note.length * 2);
    }

    /// Adds an echo that alternates between the sides, and fades the end out.
    StereoSamples finish()
    {
        const std::size_t delay = 2 * static_cast<std::size_t>(0.29 * synthesizerRate);
        for (std::size_t i = delay; i < samples_.size(); ++i)
            samples_[i] += 0.28F * samples_[(i - delay) ^ 1U];
        const std::size_t fade = std::min<std::size_t>(samples_.size(), std::size_t{2} * 22050);
        for (std::size_t i = 0; i < fade; ++i)
            samples_[samples_.size() - 1 - i] *= static_cast<float>(i) / static_cast<float>(fade);
        return std::move(samples_);
    }

private:
    void add(const Note& note, int partial, double gain, double attack, double decay)
    {
        constexpr double release = 0.05;
        Oscillator oscillator(frequencyOf(note.key) * partial);
        const auto first = static_cast<std::size_t>(note.start * synthesizerRate);
        const auto count = static_cast<std::size_t>(note.length * synthesizerRate);
        const double fall = std::exp(-1 / (decay * synthesizerRate));
        const double leftGain = std::sqrt(1 - note.pan);
        const double rightGain = std::sqrt(note.pan);
        double level = note.gain * gain;
        for (std::size_t i = 0; i < count && 2 * (first + i) + 1 < samples_.size(); ++i, level *= fall) {
            const double time = static_cast<double>(i) / synthesizerRate;
            const double edge = std::min({1.0, time / attack, (note.length - time) / release});
            const double sample = oscillator.next() * level * edge;
            samples_[2 * (first + i)] += static_cast<float>(sample * leftGain);
            samples_[2 * (first + i) + 1] += static_cast<float>(sample * rightGain);
        }
    }

    StereoSamples samples_;
};

using Chord = std::array<int, 4>;

/// Broken chords up and down over a pad.
StereoSamples arpeggios()
{
    constexpr std::array<Chord, 8> chords{Chord{69, 72, 76, 81}, {65, 69, 72, 77}, {67, 72, 76, 79}, {67, 71, 74, 79},
                                          {69, 72, 76, 81},      {65, 69, 74, 77}, {67, 71, 74, 79}, {69, 73, 76, 81}};
    constexpr std::array<std::size_t, 8> pattern{0, 1, 2, 3, 2, 1, 2, 1};
    constexpr double beat = 0.19;
    Score score(8 * 8 * beat + 1.6);
    for (std::size_t bar = 0; bar < chords.size(); ++bar) {
        const double start = static_cast<double>(bar) * 8 * beat;
        score.hold({start, 8 * beat + 0.3, chords[bar][0] - 12, 0.07, 0.4});
        score.hold({start, 8 * beat + 0.3, chords[bar][2] - 12, 0.06, 0.6});
        for (std::size_t i = 0; i < pattern.size(); ++i)
            score.pluck({start + static_cast<double>(i) * beat, 1.2, chords[bar][pattern[i]], i == 0 ? 0.26 : 0.2,
                         0.25 + 0.07 * static_cast<double>(i)});
    }
    return score.finish();
}

/// A tune in three-four time over a strummed accompaniment, growing louder and softer again.
StereoSamples waltz()
{
    constexpr std::array<int, 36> tune{79, 83, 86, 88, 86, 83, 84, 83, 81, 79, 78, 79, 81, 84, 88, 91, 88, 84,
                                       83, 86, 91, 90, 88, 86, 84, 83, 81, 79, 83, 86, 81, 84, 78, 79, 74, 79};
    constexpr std::array<Chord, 12> chords{Chord{55, 71, 74, 79}, {52, 71, 76, 79}, {57, 72, 76, 81}, {55, 71, 74, 79},
                                           {60, 72, 76, 79},      {57, 72, 76, 81}, {55, 71, 74, 79}, {52, 71, 76, 79},
                                           {57, 72, 76, 81},      {55, 71, 74, 79}, {62, 72, 78, 81}, {55, 71, 74, 79}};
    constexpr double beat = 0.5;
    Score score(36 * beat + 2);
    for (std::size_t i = 0; i < tune.size(); ++i) {
        const double start = static_cast<double>(i) * beat;
        const double swell = 0.6 + 0.6 * std::sin(std::numbers::pi * static_cast<double>(i + 1) / 40);
        const Chord& chord = chords[i / 3];
        score.pluck({start, 1.6, tune[i], 0.24 * swell, 0.6});
        if (i % 3 == 0)
            score.pluck({start, 1.5, chord[0], 0.12 * swell, 0.4});
        else
            for (std::size_t string = 1; string < chord.size(); ++string)
                score.pluck({start + 0.012 * static_cast<double>(string), 0.9, chord[string], 0.09 * swell,
                             0.2 + 0.1 * static_cast<double>(string)});
    }
    return score.finish();
}

/// Two voices that follow each other in a round.
StereoSamples roundForTwo()
{
    constexpr std::array<int, 24> tune{74, 76, 78, 81, 78, 76, 74, 73, 74, 78, 81, 86,
                                       83, 81, 79, 78, 76, 79, 83, 81, 78, 76, 73, 74};
    constexpr double beat = 0.28;
    Score score(static_cast<double>(tune.size() + 8) * beat + 1.8);
    for (const auto& [behind, shift, pan] : {std::array<int, 3>{0, 0, 3}, std::array<int, 3>{4, 12, 7}})
        for (std::size_t i = 0; i < tune.size(); ++i)
            score.pluck(
                {(static_cast<double>(i) + behind) * beat, 1.4, tune[i] + shift, shift == 0 ? 0.28 : 0.17, pan / 10.0});
    score.pluck({static_cast<double>(tune.size() + 4) * beat, 2.5, 74, 0.25, 0.5});
    score.pluck({static_cast<double>(tune.size() + 4) * beat + 0.05, 2.5, 81, 0.2, 0.4});
    score.pluck({static_cast<double>(tune.size() + 4) * beat + 0.1, 2.5, 90, 0.15, 0.6});
    return score.finish();
}

} // namespace

std::vector<StereoSamples> synthesizedPieces()
{
    return {arpeggios(), waltz(), roundForTwo()};
}

StereoSamples lineNoise(double seconds)
{
    StereoSamples samples(2 * static_cast<std::size_t>(seconds * synthesizerRate));
    std::minstd_rand random(static_cast<unsigned>(seconds * 1000) + 1);
    std::uniform_real_distribution<float> values(-0.0015F, 0.0015F);
    std::ranges::generate(samples, [&] { return values(random); });
    return samples;
}

} // namespace example
