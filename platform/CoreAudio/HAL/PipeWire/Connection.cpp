// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/Connection.h"

#include <cerrno>
#include <chrono>

namespace qmx::pipewire
{
namespace
{

constexpr std::chrono::seconds patience(5);

pw_thread_loop* startLoop()
{
    pw_init(nullptr, nullptr);
    pw_thread_loop* const loop = pw_thread_loop_new("qmx-pipewire", nullptr);
    if (loop)
        pw_thread_loop_start(loop);
    return loop;
}

// A server that dies with requests unread resets the connection.
bool isLoss(int result)
{
    return result == -EPIPE || result == -ECONNRESET || result == -ENOTCONN;
}

} // namespace

Connection::Connection(std::function<void()> changed) : changed_(std::move(changed)), loop_(startLoop())
{
    const Lock lock(*this);
    context_ = pw_context_new(loop(), nullptr, 0);
}

bool Connection::connect()
{
    if (!context_)
        return false;
    core_ = pw_context_connect(context_, nullptr, 0);
    if (!core_)
        return false;
    static const pw_core_events events = [] {
        pw_core_events made{};
        made.version = PW_VERSION_CORE_EVENTS;
        made.done = coreDone;
        made.error = coreError;
        return made;
    }();
    coreHook_ = {};
    pw_core_add_listener(core_, &coreHook_, &events, this);
    objects_ = std::make_unique<ServerObjects>(core_, state_, [this] { settle(); });
    settle();
    return true;
}

void Connection::disconnect()
{
    if (!core_)
        return;
    objects_.reset();
    spa_hook_remove(&coreHook_);
    pw_core_disconnect(core_);
    core_ = nullptr;
    isLost_ = false;
    const std::uint64_t generation = state_.generation + 1;
    state_ = {};
    state_.generation = generation;
    wantedSequence_ = doneSequence_ = 0;
}

bool Connection::waitUntil(const std::function<bool()>& isMet)
{
    struct {
        pw_thread_loop* loop;
        void lock() const { pw_thread_loop_lock(loop); }
        void unlock() const { pw_thread_loop_unlock(loop); }
    } held{loop_};
    return signalled_.wait_for(held, patience, isMet);
}

void Connection::settle()
{
    if (isConnected())
        wantedSequence_ = pw_core_sync(core_, PW_ID_CORE, 0);
}

void Connection::coreDone(void* data, std::uint32_t id, int sequence)
{
    auto& self = *static_cast<Connection*>(data);
    if (id != PW_ID_CORE || sequence != self.wantedSequence_)
        return;
    self.doneSequence_ = sequence;
    self.signal();
    self.changed_();
}

// Most errors are about objects that have just gone. Only a broken connection matters.
void Connection::coreError(void* data, std::uint32_t id, int, int result, const char*)
{
    auto& self = *static_cast<Connection*>(data);
    if (id != PW_ID_CORE || !isLoss(result))
        return;
    self.isLost_ = true;
    self.signal();
    self.changed_();
}

} // namespace qmx::pipewire
