// SPDX-License-Identifier: MIT
// Containers that stay the same object while their contents change under whoever reads them. Readers see contents that
// never change: each change copies them, edits the copy and puts it in place.
#pragma once

#include "CoreAudioTypes/MacTypes.h"
#include "Foundation/Export.h"
#include "Foundation/Threads/Retirement.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>

namespace qmx
{

/// Counts who walks something now, so that whoever replaces it knows when the last of those has left.
class QMX_EXPORT ReaderGate
{
public:
    /// One reader, inside while it exists. Neither allocates, locks nor waits; its end may wake who waits.
    class QMX_EXPORT Reader
    {
    public:
        explicit Reader(ReaderGate& gate) noexcept;
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

    private:
        std::atomic<UInt32>& count_;
    };

    /// Returns when all readers that are inside now have left, however many come after them. Not by one who is inside.
    void waitForReaders();

private:
    std::mutex waiting_;
    std::atomic<UInt32> present_{0}; // the count that newcomers join
    std::atomic<UInt32> counts_[2]{};
};

/// What a container held before a change. When it ends nobody walks that any more, and it is freed; inside an I/O or
/// render callback it does not wait, and another thread frees it later. Hold no lock that a reader takes.
class QMX_EXPORT FormerContents
{
public:
    /// Made before the contents are replaced: it needs memory, and nothing has changed where there is none.
    static std::unique_ptr<Retirable> keep(std::shared_ptr<ReaderGate> gate, std::shared_ptr<const void> contents);
    explicit FormerContents(std::unique_ptr<Retirable> contents) : contents_(std::move(contents)) {}
    ~FormerContents();
    FormerContents(const FormerContents&) = delete;
    FormerContents& operator=(const FormerContents&) = delete;

private:
    std::unique_ptr<Retirable> contents_;
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

    /// Reads without lock or allocation. What now() gave stays valid, and who is in it alive, while the walk exists.
    class Walk
    {
    public:
        explicit Walk(const LiveContainer& live) noexcept : live_(live), reader_(*live.gate_) {}
        /// The present contents: others after a change.
        const Container& now() const noexcept { return *live_.published_.load(); }

    private:
        const LiveContainer& live_;
        ReaderGate::Reader reader_;
    };

    LiveContainer() : contents_(std::make_shared<const Container>()), published_(contents_.get()) {}
    LiveContainer(const LiveContainer&) = delete;
    LiveContainer& operator=(const LiveContainer&) = delete;

    Snapshot snapshot() const
    {
        const std::scoped_lock lock(mutex_);
        return Snapshot(contents_);
    }

    /// Has `edit` change a copy and puts that in place. One change at a time: `edit` must not use this container.
    template <class Edit> FormerContents change(Edit edit)
    {
        const std::scoped_lock lock(mutex_);
        auto changed = std::make_shared<Container>(*contents_);
        edit(*changed);
        auto former = FormerContents::keep(gate_, contents_);
        published_.store(changed.get());
        contents_ = std::move(changed);
        return FormerContents(std::move(former));
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Container> contents_;
    std::atomic<const Container*> published_;
    std::shared_ptr<ReaderGate> gate_ = std::make_shared<ReaderGate>(); // outlives this for former contents
};

} // namespace qmx
