// SPDX-License-Identifier: MIT
// Levels in decibels: of what a device captures, and of any other sound that the program has.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Result.h>

#include <memory>
#include <vector>

namespace qmx
{

class Device;

/// The level of a linear amplitude, in decibels relative to full scale (1.0): 0 for full scale, -infinity for silence.
QMX_EXPORT double decibels(double amplitude);

/// What a channel did between two readings, in decibels relative to full scale.
struct ChannelLevels {
    double peak;     ///< of the samples
    double truePeak; ///< of the wave between the samples too, by four-fold oversampling; never below `peak`
    double rms;      ///< root mean square; -3.01 for a sine wave of full scale
    bool hasClipped; ///< a sample was at full scale of 16 bits or beyond
};

/// Measures interleaved or separate samples. One thread adds sound, a real-time one if it likes: adding neither
/// allocates, locks nor waits. Another thread reads.
class QMX_EXPORT Levels
{
public:
    /// Null without memory.
    static std::unique_ptr<Levels> make(UInt32 channels);
    ~Levels();
    Levels(const Levels&) = delete;
    Levels& operator=(const Levels&) = delete;

    UInt32 channels() const;
    /// Adds interleaved samples of `soundChannels` channels; those beyond the meter's are left out.
    void add(std::span<const float> samples, UInt32 soundChannels) noexcept;
    /// Adds `frames` samples of one channel, counted from 0, which lie `stride` samples apart.
    void addChannel(UInt32 channel, const float* samples, std::size_t frames, std::size_t stride) noexcept;
    /// The levels since the last reading, one entry for each channel; what is added at the very moment counts for the
    /// next reading. Empty without memory.
    std::vector<ChannelLevels> read();

private:
    struct Channel;
    Levels(std::unique_ptr<Channel[]> state, UInt32 channels);
    const std::unique_ptr<Channel[]> state_;
    const UInt32 channels_;
};

/// Measures what a device captures until the handle is released, which any thread may do. The sound that goes out of a
/// device is other programs' too and cannot be had: measure what the program plays with Levels in Device::onOutput, or
/// with Player::levels().
class QMX_EXPORT Meter
{
public:
    /// Starts the device and measures all its input channels.
    static Result<Meter> start(const Device& device);
    Meter(Meter&& other) noexcept;
    Meter& operator=(Meter&& other) noexcept;
    ~Meter();

    /// The levels since the last reading, one entry for each channel. One thread at a time, not a real-time one.
    std::vector<ChannelLevels> read() const;
    /// Whether the device is there and runs.
    bool isRunning() const;

private:
    struct Implementation;
    explicit Meter(std::unique_ptr<Implementation> implementation);
    std::unique_ptr<Implementation> implementation_;
};

} // namespace qmx
