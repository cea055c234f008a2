// SPDX-License-Identifier: MIT
// Containers that stay the same object while their contents change under their readers. Readers see contents that never
// change: each change copies them, edits the copy and puts it in place.
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace qmx
{

/// What a container held before a change. Releasing it waits for the walks that still read it, then frees it; inside an
/// I/O or render callback another thread does both. Hold no lock that a walking thread takes.
using FormerContents = std::shared_ptr<const void>;

/// A live container without its type.
class QMX_EXPORT LiveContents
{
public:
    using Contents = std::shared_ptr<const void>;

    explicit LiveContents(const Contents& first);
    ~LiveContents();
    LiveContents(const LiveContents&) = delete;
    LiveContents& operator=(const LiveContents&) = delete;

    Contents snapshot() const noexcept;
    /// Replaces the contents by what `edited` makes of them. When memory runs out, nothing changes.
    FormerContents change(const std::function<Contents(const void*)>& edited);

    unsigned beginWalk() const noexcept;
    const void* now() const noexcept;
    void endWalk(unsigned place) const noexcept;

private:
    struct State;
    const std::unique_ptr<State> state_;
};

/// A live list or dictionary. Any thread; a Walk is for real-time threads, everything else for the others.
template <class Container> class LiveContainer
{
public:
    /// The contents at one instant: `for (const auto& device : list.snapshot())`.
    class Snapshot
    {
    public:
        explicit Snapshot(std::shared_ptr<const Container> contents) : contents_(std::move(contents)) {}
        auto begin() const { return contents_->begin(); }
        auto end() const { return contents_->end(); }
        std::size_t size() const { return contents_->size(); }
        bool empty() const { return contents_->empty(); }
        const Container* operator->() const { return contents_.get(); }
        const Container& operator*() const& { return *contents_; }
        const Container& operator*() const&& = delete; // it would outlive the snapshot

    private:
        std::shared_ptr<const Container> contents_;
    };

    /// Reads without lock or allocation. What now() returned, and the objects in it, stay valid while the walk exists.
    class Walk
    {
    public:
        explicit Walk(const LiveContainer& live) noexcept : live_(live.contents_), place_(live_.beginWalk()) {}
        ~Walk() { live_.endWalk(place_); }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;
        /// The current contents; after a change, others.
        const Container& now() const noexcept { return *static_cast<const Container*>(live_.now()); }

    private:
        const LiveContents& live_;
        const unsigned place_;
    };

    LiveContainer() : contents_(std::make_shared<const Container>()) {}

    Snapshot snapshot() const { return Snapshot(std::static_pointer_cast<const Container>(contents_.snapshot())); }

    /// Lets `edit` change a copy, then puts the copy in place. One change at a time: `edit` must not change this
    /// container.
    template <class Edit> FormerContents change(Edit edit)
    {
        return contents_.change([&](const void* present) {
            auto changed = std::make_shared<Container>(*static_cast<const Container*>(present));
            edit(*changed);
            return changed;
        });
    }

private:
    LiveContents contents_;
};

} // namespace qmx
