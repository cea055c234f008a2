// SPDX-License-Identifier: MIT
// The connection to the sound server, and the thread that its events arrive on.
#pragma once

#include "CoreAudio/HAL/PipeWire/ServerObjects.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <pipewire/pipewire.h>

namespace qmx::pipewire
{

/// Made once and never destroyed. Its thread runs the events of all objects with the lock held, and never calls the
/// core.
class Connection
{
public:
    /// `changed` is called on the connection's thread when the server's state is complete after a change, and when the
    /// server is gone.
    explicit Connection(std::function<void()> changed) : changed_(std::move(changed)) {}

    /// The lock that guards all objects of the server and the state. Never taken by threads that run cycles.
    class Lock
    {
    public:
        explicit Lock(Connection& connection) : loop_(connection.loop_) { pw_thread_loop_lock(loop_); }
        ~Lock() { pw_thread_loop_unlock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pw_thread_loop* loop_;
    };

    /// Makes what the library needs, its thread included. False if it cannot, which is logged the first time and may be
    /// tried again. One thread at a time. Nothing else may be called until it has returned true.
    bool open();
    bool isOpen() const { return loop_ != nullptr; }

    // --- With the lock held, not on the connection's thread
    /// False if there is no server. Does not wait.
    bool connect();
    /// After a loss: drops what belonged to the lost server.
    void disconnect();
    /// Waits for events until `isMet`; false if that takes too long.
    bool waitUntil(const std::function<bool()>& isMet);

    // --- With the lock held
    bool isConnected() const { return core_ && !isLost_; }
    bool isLost() const { return isLost_; }
    /// Whether the server has answered all requests, so that its state is complete.
    bool isSettled() const { return doneSequence_ == wantedSequence_; }
    const ServerState& state() const { return state_; }
    ServerObjects* objects() { return objects_.get(); }
    /// Calls `changed` later, when the server has answered all requests up to now.
    void settle();

    /// Wakes the threads in waitUntil.
    void signal() { signalled_.notify_all(); }
    pw_loop* loop() { return pw_thread_loop_get_loop(loop_); }

private:
    static void coreDone(void* self, std::uint32_t id, int sequence);
    static void coreError(void* self, std::uint32_t id, int sequence, int result, const char* message);

    int makeLoop();

    const std::function<void()> changed_;
    bool hasFailedToOpen_ = false;
    pw_thread_loop* loop_ = nullptr; // null exactly when the context is null
    pw_context* context_ = nullptr;
    std::condition_variable_any signalled_; // the loop's own one would wait by the wall clock
    // guarded by the lock
    pw_core* core_ = nullptr;
    spa_hook coreHook_{};
    std::unique_ptr<ServerObjects> objects_;
    ServerState state_;
    int wantedSequence_ = 0;
    int doneSequence_ = 0;
    bool isLost_ = false;
};

} // namespace qmx::pipewire
