// SPDX-License-Identifier: MIT
#include "Front/PlayThru.h"

#include "Front/Missing.h"
#include "Front/ShortMemory.h"
#include "PlayThru/ComplexPlayThru.h"

#include <utility>

namespace qmx
{
namespace
{

Result<void> failureOf(const ComplexPlayThru& object)
{
    if (object.lastStatus() != noErr)
        return Error(object.lastStatus(), object.lastError());
    return {};
}

} // namespace

PlayThru::PlayThru(std::unique_ptr<ComplexPlayThru> object, Device input)
    : object_(std::move(object)), input_(std::move(input)), inputUID_(input_.uid())
{
}

PlayThru::PlayThru(PlayThru&& other) noexcept = default;
PlayThru& PlayThru::operator=(PlayThru&& other) noexcept = default;
PlayThru::~PlayThru() = default;

Result<PlayThru> PlayThru::start(const Device& input, const Device& output, const PlayThruOptions& options)
{
    return orNoMemory([&]() -> Result<PlayThru> {
        for (const auto& [device, direction] : {std::pair(&input, Direction::input), {&output, Direction::output}})
            if (device->channels(direction) == 0)
                return missing(*device->object(), direction == Direction::input);
        OSStatus status = noErr;
        std::string reason;
        auto object = ComplexPlayThru::make(input.id(), output.id(), status, &reason);
        if (!object)
            return Error(status, std::move(reason));
        object->SetDriftCorrection(options.driftCorrection);
        PlayThru made(std::move(object), input);
        if (options.volume)
            if (auto set = made.setVolume(*options.volume); !set)
                return set.error();
        (void)made.object().Start(); // an input that does not start is in lastStatus() only
        if (auto started = failureOf(made.object()); !started)
            return started.error();
        return made;
    });
}

bool PlayThru::isRunning() const
{
    return object_->IsRunning();
}

double PlayThru::latency() const
{
    double frames = 0;
    if (!input_.isAlive()) // another object after it has come back
        if (auto again = qmx::device(inputUID_))
            input_ = *std::move(again);
    const Float64 inputRate = input_.sampleRate();
    return object_->GetLatency(&frames) == noErr && inputRate > 0 ? frames / inputRate : 0;
}

unsigned long PlayThru::refusedFetches() const
{
    return object_->GetRefusedFetches();
}

double PlayThru::rate() const
{
    return static_cast<double>(object_->GetRate());
}

float PlayThru::volume() const
{
    float volume = 0;
    return object_->GetVolume(&volume) == noErr ? volume : 0;
}

Result<void> PlayThru::setVolume(float volume)
{
    return object_->SetVolume(volume) == noErr ? Result<void>() : failureOf(*object_);
}

std::optional<Error> PlayThru::failure() const
{
    const auto failed = failureOf(*object_);
    return failed ? std::nullopt : std::optional(failed.error());
}

} // namespace qmx
