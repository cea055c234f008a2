// SPDX-License-Identifier: MIT
// How objects that threads in real time read are replaced by other threads.
#pragma once

#include "Foundation/Export.h"

#include <atomic>
#include <memory>
#include <utility>

namespace qmx
{

/// Lets some threads read objects behind atomic pointers (slots) that others replace. A reader loads the pointers while
/// it is inside. Who replaces an object waits until every reader that may have loaded the old one has left, and frees
/// that. Serves any number of slots.
class QMX_EXPORT Publication
{
    struct Readers;

public:
    Publication();
    ~Publication();
    Publication(const Publication&) = delete;
    Publication& operator=(const Publication&) = delete;

    /// One reader, inside while this exists. Neither allocates, locks nor waits; its end may wake those who wait. It
    /// may end on another thread than it began on. Nests.
    class Reader
    {
    public:
        explicit Reader(const Publication& publication) noexcept
            : publication_(publication), place_(publication.enter())
        {
        }
        ~Reader() { publication_.leave(place_); }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

    private:
        const Publication& publication_;
        const unsigned place_;
    };
    // The two halves of a reader, for those who cannot hold one: leave() takes what enter() gave.
    unsigned enter() const noexcept;
    void leave(unsigned place) const noexcept;

    /// Puts `next` into `slot`, waits for the readers that may use the old object, and destroys that. Inside a callback
    /// another thread waits and destroys it. Where memory runs out nothing has changed. Hold no lock that a reader
    /// takes; who replaces under one makes a Replacement before it takes the lock.
    template <class Object> void replaceAndWait(std::atomic<Object*>& slot, std::unique_ptr<Object> next);
    /// Returns when the readers that are inside now have left, however many come after them; at once inside a callback,
    /// which may be the reader's own. Hold no lock that a reader takes.
    void waitForReaders() const;

private:
    friend class Replacement;
    std::shared_ptr<Readers> readers_; ///< outlives this for replaced objects
};

/// Replaces objects now; its end waits for the readers of the old ones and destroys them, as replaceAndWait() does.
class QMX_EXPORT Replacement
{
public:
    explicit Replacement(const Publication& publication);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Where memory runs out nothing has changed. Calls for one slot come one at a time.
    template <class Object> void replace(std::atomic<Object*>& slot, std::unique_ptr<Object> next)
    {
        reserve(1);
        if (const Object* const old = slot.exchange(next.release()))
            keep(old, [](const void* object) { delete static_cast<const Object*>(object); });
    }
    /// Memory for `count` more objects: replacing those does not fail.
    void reserve(std::size_t count);
    /// Has another thread wait for the readers and destroy what was replaced so far.
    void retire() noexcept;

private:
    struct Former;
    void keep(const void* object, void (*destroy)(const void*)) noexcept;
    std::shared_ptr<Publication::Readers> readers_;
    std::unique_ptr<Former> former_;
};

template <class Object> void Publication::replaceAndWait(std::atomic<Object*>& slot, std::unique_ptr<Object> next)
{
    Replacement(*this).replace(slot, std::move(next));
}

} // namespace qmx
