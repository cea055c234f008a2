// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <memory>
#include <string>

/// Plays what one device captures on another device, whose clock may be its own, or on the same one. Captured slices go
/// into a ring under their sample times; a varispeed unit in front of the output unit fetches what lies a constant
/// offset before the output's time, and its rate makes up for devices of different nominal rates. PlayThru.h has the
/// same as functions for the only play-through of a process.
///
/// Two channels are carried: one captured channel is heard on both, of more the first two, and an output of one channel
/// plays their mean. A failing platform call prints "qmxcoreaudio error: <status> ->  <file>:  <line>" to standard
/// error, is kept for lastStatus(), and what follows it goes on. When a device goes away its side is silent, which
/// lastStatus() tells, and goes on when a device with its UID is there again.
///
/// Any thread that may wait. Destroying it stops both sides and waits for their cycles.
class QMX_EXPORT ComplexPlayThru
{
public:
    /// Sets up play-through between two devices, 0 for those that are the default ones now; it does not run yet. Null
    /// if that fails: `status` is then -1 without an input unit, otherwise 1, standard error has a line, and `reason`,
    /// if it is not null, a sentence about what failed. An output that cannot be used is no such failure, but in
    /// lastStatus(); Start() tries it again.
    static std::unique_ptr<ComplexPlayThru> make(unsigned long inputDevice, unsigned long outputDevice,
                                                 OSStatus& status, std::string* reason = nullptr);
    virtual ~ComplexPlayThru() = default;
    ComplexPlayThru(const ComplexPlayThru&) = delete;
    ComplexPlayThru& operator=(const ComplexPlayThru&) = delete;

    /// Starts both sides; 0 if the output runs already, otherwise the output's status. If the output does not start,
    /// the input does not go on either. An input that does not start is in lastStatus(); starting again, or naming
    /// another one, tries it again.
    [[nodiscard]] virtual OSStatus Start() = 0;
    /// Stops both sides, and sides that wait for their device. The output's status, 0 if it does not run.
    [[nodiscard]] virtual OSStatus Stop() = 0;
    /// Whether the output runs.
    virtual bool IsRunning() const = 0;

    /// Goes over to another device, 0 for the one that is the default now, running or not. A device that cannot be used
    /// is refused and changes nothing; one that does not start is taken.
    [[nodiscard]] virtual OSStatus SetInputDeviceAsCurrent(unsigned long device) = 0;
    [[nodiscard]] virtual OSStatus SetOutputDeviceAsCurrent(unsigned long device) = 0;

    /// 0 to 1.
    [[nodiscard]] virtual OSStatus SetVolume(float volume) = 0;
    [[nodiscard]] virtual OSStatus GetVolume(float* volume) const = 0;

    /// Whether the rate follows the two clocks by up to 1000 parts per million, so that their distance in time stays,
    /// and is measured again after one of them jumped. Initially not: then the offset is constant in frames, and one
    /// day it runs out of the ring.
    virtual void SetDriftCorrection(bool isOn) = 0;
    /// The constant distance between the sample times of input and output, in frames of the input: both safety offsets
    /// and both buffers, the output's as so many input frames if the input is the faster one, and the varispeed's
    /// latency. The devices add what they need to deliver and to play.
    [[nodiscard]] virtual OSStatus GetLatency(double* frames) const = 0;
    /// How often the output asked for frames that were not held any more or not yet, and played silence; not counted is
    /// the silence before the first captured frames are due.
    virtual unsigned long GetRefusedFetches() const = 0;
    /// Input frames per output frame at present.
    virtual float GetRate() const = 0;

    /// The status of what failed first in the last call that changes something, or since then by itself: in a cycle, or
    /// as a device went or returned. 0 if nothing did.
    virtual OSStatus lastStatus() const = 0;
    /// The same as a sentence for people that names the device, empty if nothing failed.
    virtual std::string lastError() const = 0;

    // Set-up steps, for callers with needs of their own while it does not run; the set-up has taken all of them but
    // SetupBuffers() and MapChannels().

    /// Makes the buffers, for the input's present buffer size and with the client formats as they are.
    [[nodiscard]] virtual OSStatus SetupBuffersHacked() = 0;
    /// The same with each client side at its device's nominal rate.
    [[nodiscard]] virtual OSStatus SetupBuffers() = 0;
    /// Turns the input unit's input on and its output off.
    [[nodiscard]] virtual OSStatus EnableIO() = 0;
    /// Sets the input unit's callback.
    [[nodiscard]] virtual OSStatus CallbackSetup() = 0;
    /// If the devices' channel counts differ, gives output channel i the input channel i, and prints that.
    [[nodiscard]] virtual OSStatus MapChannels() = 0;
    /// The sum of both devices' safety offsets and buffers, in frames.
    virtual double ComputeThruOffset() const = 0;

protected:
    ComplexPlayThru() = default;
};
