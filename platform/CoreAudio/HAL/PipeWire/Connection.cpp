// SPDX-License-Identifier: MIT
#include "CoreAudio/HAL/PipeWire/Connection.h"

#include "Foundation/Text/Log.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>

namespace qmx::pipewire
{
namespace
{

constexpr std::chrono::seconds patience(5);

// While an object of this class exists, the PipeWire library logs nothing.
class LibraryIsQuiet
{
public:
    LibraryIsQuiet() { pw_log_set_level(SPA_LOG_LEVEL_NONE); }
    ~LibraryIsQuiet() { pw_log_set_level(usual_); }
    LibraryIsQuiet(const LibraryIsQuiet&) = delete;
    LibraryIsQuiet& operator=(const LibraryIsQuiet&) = delete;

private:
    const spa_log_level usual_ = pw_log_level;
};

// The error number of a failed call; EIO if the library set none.
int lastError()
{
    return errno != 0 ? errno : EIO;
}

// Whether an error means that the server is gone. One that dies with requests unread resets the connection.
bool isLoss(int result)
{
    return result == -EPIPE || result == -ECONNRESET || result == -ENOTCONN;
}

} // namespace

bool Connection::open()
{
    if (isOpen())
        return true;
    pw_init(nullptr, nullptr);
    std::optional<LibraryIsQuiet> quiet; // the library has logged the failure before
    if (hasFailedToOpen_)
        quiet.emplace();
    const int error = makeLoop();
    if (error == 0)
        return true;
    pw_deinit(); // makes the library look for its plugins again next time
    if (!std::exchange(hasFailedToOpen_, true))
        Log("PipeWire: the library cannot work (%s); there are no devices until it can", std::strerror(error));
    return false;
}

// Returns the error number; on failure nothing is kept.
int Connection::makeLoop()
{
    pw_thread_loop* const loop = pw_thread_loop_new("qmx-pipewire", nullptr);
    if (!loop)
        return lastError();
    pw_context* const context = pw_context_new(pw_thread_loop_get_loop(loop), nullptr, 0);
    const int error = context ? -pw_thread_loop_start(loop) : lastError();
    if (error == 0) {
        loop_ = loop;
        context_ = context;
        return 0;
    }
    if (context)
        pw_context_destroy(context);
    pw_thread_loop_destroy(loop);
    return error;
}

bool Connection::connect()
{
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
