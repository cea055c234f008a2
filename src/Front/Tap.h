// SPDX-License-Identifier: MIT
// The sound of a device, cycle by cycle, in the program's own function.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/AudioBuffers.h>
#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Front/Result.h>

#include <memory>
#include <new>
#include <type_traits>
#include <utility>

class QMXAudioDevice;

namespace qmx
{

/// The program's function as a tap keeps it. Device::onInput and Device::onOutput make it.
class QMX_EXPORT TapFunction
{
public:
    virtual ~TapFunction();
    virtual void operator()(std::span<float> samples, unsigned channels) noexcept = 0;
};

/// A function that takes part in a device's cycles: it receives what the device captures, or supplies what it plays.
/// It is called on the device's I/O thread, in real time: there it must neither wait, allocate, lock nor log. Samples
/// are interleaved, all channels of all streams of the direction in their order; one call has one cycle's frames (of a
/// device with several streams, whose samples are gathered in memory of the tap's own, perhaps a part of them).
///
/// The tap ends with this handle, which any thread may release, also while the device runs. After that the function is
/// not called any more; a call in flight is waited for, except inside an I/O or render callback (the function's own
/// among them), where another thread frees the function a little later. A device that is unplugged stops calling.
class QMX_EXPORT Tap
{
public:
    Tap(Tap&& other) noexcept;
    Tap& operator=(Tap&& other) noexcept;
    ~Tap();

    /// Whether the device is there and runs. Any thread but the real-time ones.
    bool isRunning() const;
    /// The device object, which is the tap's own.
    std::shared_ptr<QMXAudioDevice> object() const;

    /// Starts a tap on the device of an object; null is a function for which there was no memory.
    static Result<Tap> start(const QMXAudioDevice& device, bool isInput, std::unique_ptr<TapFunction> function);

private:
    struct Implementation;
    struct Subscriber;
    explicit Tap(Implementation* implementation) : implementation_(implementation) {}
    Implementation* implementation_;
};

/// A callable as a TapFunction; null without memory. `Samples` is std::span<const float> or std::span<float>.
template <class Samples, class Call> std::unique_ptr<TapFunction> makeTapFunction(Call call)
{
    static_assert(std::is_nothrow_invocable_v<Call&, Samples, unsigned>,
                  "a tap's function takes samples and the number of channels, and is noexcept");
    struct Function final : TapFunction {
        explicit Function(Call&& made) : call(std::move(made)) {}
        void operator()(std::span<float> samples, unsigned channels) noexcept override { call(samples, channels); }
        Call call;
    };
    return std::unique_ptr<TapFunction>(new (std::nothrow) Function(std::move(call)));
}

} // namespace qmx
