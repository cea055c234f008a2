// SPDX-License-Identifier: MIT
// Play-through: live sound from one device to another, driven through functions. There is one play-through in the
// process; without one each function answers 0 and does nothing. Any thread that may wait; one call waits for another.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>

#include <string>

/// Ends a play-through that exists and sets up another between two devices (0: those that are the default ones now); it
/// does not run yet.
/// 0; -1 where there is no input unit and 1 where anything else fails: then there is none, and a line on standard error
/// says so.
[[nodiscard]] QMX_EXPORT OSStatus InitPlayThru(unsigned long inputDevice, unsigned long outputDevice);
/// Starts both sides; 0 if the output runs already. An input that does not start is in LastStatusForPlayThru().
[[nodiscard]] QMX_EXPORT OSStatus StartPlayThru();
[[nodiscard]] QMX_EXPORT OSStatus StopPlayThru();
QMX_EXPORT bool PlayThruIsRunning();
/// StartPlayThru() or StopPlayThru().
[[nodiscard]] QMX_EXPORT OSStatus SetPlayThru(bool runs);
/// Goes over to another device, 0 for the one that is the default now, running or not. One that cannot be used is
/// refused and changes nothing.
[[nodiscard]] QMX_EXPORT OSStatus SetInputDeviceAsCurrentForPlayThru(unsigned long device);
[[nodiscard]] QMX_EXPORT OSStatus SetOutputDeviceAsCurrentForPlayThru(unsigned long device);
/// 0 to 1.
[[nodiscard]] QMX_EXPORT OSStatus SetVolumeForPlayThru(float volume);
[[nodiscard]] QMX_EXPORT OSStatus GetVolumeForPlayThru(float* volume);

/// Whether a failing InitPlayThru() ends the process, with the exit status -1 or 1. Off at first.
QMX_EXPORT void SetExitsOnFailureForPlayThru(bool exits);
/// Whether the playback rate follows the two devices' clocks by up to 1000 parts per million, so that their distance
/// stays what it was. Off at first, and for each new play-through.
[[nodiscard]] QMX_EXPORT OSStatus SetDriftCorrectionForPlayThru(bool isOn);
/// The constant distance between the sample times of input and output, in frames of the input: both safety offsets and
/// both buffers, the output's as so many input frames if the input is the faster one, and the varispeed's latency. The
/// devices add what they need to deliver and to play.
[[nodiscard]] QMX_EXPORT OSStatus GetLatencyForPlayThru(double* frames);
/// How often since InitPlayThru() the output asked for frames that were not held any more or not yet, and got silence.
[[nodiscard]] QMX_EXPORT OSStatus GetRefusedFetchesForPlayThru(unsigned long* fetches);
/// Input frames per output frame at present.
[[nodiscard]] QMX_EXPORT OSStatus GetRateForPlayThru(float* rate);

/// The status of what failed first in the last call that changes something, or since then by itself: in a cycle, or as
/// a device went or returned; of the set-up if that failed. 0 if nothing did.
[[nodiscard]] QMX_EXPORT OSStatus LastStatusForPlayThru();
/// The same as a sentence for people that names the device, empty if nothing failed.
QMX_EXPORT std::string LastErrorForPlayThru();
