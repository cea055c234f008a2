// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/Virtual/Timeline.h"

#include "Foundation/RealTime.h"
#include "Foundation/Text/Log.h"
#include "Foundation/Threads/Worker.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace qmx
{
namespace
{

SInt64 hostNanoseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

} // namespace

UInt64 Timeline::now() const
{
    if (mode_.load() == VirtualTime::real)
        return static_cast<UInt64>(hostNanoseconds() + realOffset_.load());
    return line_.load();
}

void Timeline::setMode(VirtualTime mode)
{
    if (mode == VirtualTime::fast && !fastDriver_.start()) {
        Log("VirtualHardware: no thread to drive fast time with; time goes on as it did");
        return;
    }
    {
        const Lock held(mutex_);
        const UInt64 present = now();
        line_ = present;
        realOffset_ = static_cast<SInt64>(present) - hostNanoseconds();
        mode_ = mode;
        for (const auto& seat : seats_)
            seat->changed.notify_all();
        canDrive_.notify_all();
    }
    if (mode != VirtualTime::fast)
        waitForStep();
}

void Timeline::reset(VirtualTime mode)
{
    setMode(mode);
    const Lock held(mutex_);
    line_ = 0;
    realOffset_ = 0;
}

void Timeline::waitForStep()
{
    if (!isInsideCallback())
        const std::scoped_lock step(driving_);
}

void Timeline::join(std::shared_ptr<Seat> seat, const Lock& /*held*/)
{
    seats_.push_back(std::move(seat));
    canDrive_.notify_all();
}

void Timeline::leave(Seat& seat, const Lock& /*held*/)
{
    seat.hasLeft = true;
    seat.changed.notify_all();
    std::erase_if(seats_, [&seat](const auto& each) { return each.get() == &seat; });
}

void Timeline::reschedule(Seat& seat, UInt64 due, const Lock& /*held*/)
{
    seat.due = due;
    seat.changed.notify_all();
}

bool Timeline::waitForTurn(Seat& seat, Lock& held)
{
    while (!seat.hasLeft && !seat.hasTurn) {
        if (mode_.load() != VirtualTime::real) {
            seat.changed.wait(held);
            continue;
        }
        const UInt64 present = now();
        if (present >= seat.due)
            break;
        seat.changed.wait_for(held, std::chrono::nanoseconds(seat.due - present));
    }
    if (seat.hasLeft)
        giveTurnBack(seat, held);
    return !seat.hasLeft;
}

void Timeline::giveTurnBack(Seat& seat, const Lock& /*held*/)
{
    seat.hasTurn = false;
    turnIsBack_.notify_all();
}

bool Timeline::step(UInt64 limit)
{
    const std::scoped_lock step(driving_);
    Lock held(mutex_);
    if (mode_.load() == VirtualTime::real || seats_.empty())
        return false;
    const std::shared_ptr<Seat> seat =
        *std::ranges::min_element(seats_, {}, [](const auto& each) { return std::pair(each->due, each->id); });
    if (seat->due > limit)
        return false;
    line_ = std::max(line_.load(), seat->due);
    seat->hasTurn = true;
    seat->changed.notify_all();
    turnIsBack_.wait(held, [&seat] { return !seat->hasTurn; });
    return true;
}

void Timeline::moveTo(UInt64 time)
{
    const Lock held(mutex_);
    line_ = std::max(line_.load(), time);
}

void Timeline::driveFast()
{
    for (;;) {
        {
            Lock held(mutex_);
            canDrive_.wait(held, [this] { return mode_.load() == VirtualTime::fast && !seats_.empty(); });
        }
        step(std::numeric_limits<UInt64>::max());
        waitUntilWorkersRest();
    }
}

} // namespace qmx
