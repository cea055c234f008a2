// SPDX-License-Identifier: MIT
#include "Foundation/MainThread/RealTimeNotification.h"

#include "Foundation/MainThread/MainLoop.h"
#include "Foundation/MainThread/NotificationCenter.h"

namespace qmx
{
namespace
{

void post(const std::shared_ptr<Object>& sender, const std::string& name)
{
    NotificationCenter::defaultCenter().postNotification(name, sender);
}

} // namespace

RealTimeNotification::RealTimeNotification(std::string name, std::weak_ptr<Object> sender, Kind kind, Delivery delivery)
    : route_(new Route{std::move(name), std::move(sender), kind, delivery ? std::move(delivery) : Delivery(post)})
{
    RunLoop::main(); // made here, where allocating is allowed
}

RealTimeNotification::~RealTimeNotification() = default;

void RealTimeNotification::send() noexcept
{
    const bool isFrame = route_->kind == Kind::frame;
    if (route_->sender.expired() || (isFrame && route_->isPending.exchange(true)))
        return;
    RunLoop::Implementation& loop = RunLoop::main().implementation();
    if (loop.ring.send(route_, loop.orders))
        loop.wake();
    else
        route_->isPending = false;
}

} // namespace qmx
