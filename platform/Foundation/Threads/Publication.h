// SPDX-License-Identifier: MIT
// Replaces objects that real-time threads read.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <atomic>
#include <memory>
#include <utility>

namespace qmx
{

/// Lets some threads read objects through atomic pointers (slots) that others replace. A reader loads the pointers
/// while it is inside. A thread that replaces an object waits until every reader that may have loaded the old one has
/// left, and then frees it. Serves any number of slots.
class QMX_EXPORT Publication
{
    struct Readers;

public:
    Publication();
    ~Publication();
    Publication(const Publication&) = delete;
    Publication& operator=(const Publication&) = delete;

    /// One reader, inside while this exists. Neither allocates, locks nor waits; the destructor may wake waiting
    /// threads and may run on another thread than the constructor. Nests.
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
    // The two halves of a reader, for code that cannot hold one: leave() is called with the result of enter().
    unsigned enter() const noexcept;
    void leave(unsigned place) const noexcept;

    /// Puts `next` into `slot`, waits for the readers that may use the old object, and destroys that. Inside a callback
    /// another thread waits and destroys it. If memory runs out, it throws std::bad_alloc and nothing has changed. Hold
    /// no lock that a reader takes; to replace under such a lock, make a Replacement before taking it.
    template <class Object> void replaceAndWait(std::atomic<Object*>& slot, std::unique_ptr<Object> next);
    /// Waits until the readers that are inside now have left, but for no later ones; returns at once inside a callback,
    /// which may be the reader's own. Hold no lock that a reader takes.
    void waitForReaders() const;

private:
    friend class Replacement;
    std::shared_ptr<Readers> readers_; ///< outlives this object while replaced objects wait
};

/// Replaces objects at once; its destructor waits for the readers of the old ones and destroys them, as
/// replaceAndWait() does.
class QMX_EXPORT Replacement
{
public:
    explicit Replacement(const Publication& publication);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Puts `next` into `slot`. If memory runs out, it throws std::bad_alloc and nothing has changed. One call at a
    /// time for a slot.
    template <class Object> void replace(std::atomic<Object*>& slot, std::unique_ptr<Object> next)
    {
        reserve(1);
        if (const Object* const old = slot.exchange(next.release()))
            keep(old, [](const void* object) { delete static_cast<const Object*>(object); });
    }
    /// Allocates for `count` more objects, so that replacing those cannot fail.
    void reserve(std::size_t count);
    /// Leaves it to another thread to wait for the readers and to destroy the objects replaced so far.
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
