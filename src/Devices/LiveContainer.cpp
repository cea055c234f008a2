// SPDX-License-Identifier: MIT
#include "Devices/LiveContainer.h"

#include "Foundation/RealTime.h"

namespace qmx
{

namespace
{

/// Contents that readers may still walk.
struct Replaced final : Retirable {
    Replaced(std::shared_ptr<ReaderGate> readers, std::shared_ptr<const void> replaced)
        : gate(std::move(readers)), contents(std::move(replaced))
    {
    }
    ~Replaced() override { gate->waitForReaders(); }
    std::shared_ptr<ReaderGate> gate;
    std::shared_ptr<const void> contents;
};

void waitUntilZero(const std::atomic<UInt32>& count)
{
    while (const UInt32 left = count.load())
        count.wait(left);
}

} // namespace

ReaderGate::Reader::Reader(ReaderGate& gate) noexcept : count_(gate.counts_[gate.present_.load()])
{
    count_.fetch_add(1);
}

ReaderGate::Reader::~Reader()
{
    if (count_.fetch_sub(1) == 1)
        count_.notify_all();
}

// Newcomers are sent to the other count, so that they cannot keep the one that is waited for from falling to zero. A
// reader that looked which count to join before a switch and joins after it is caught by the first wait of the next
// call; what it reads until then is newer than what this call waits for.
void ReaderGate::waitForReaders()
{
    const std::scoped_lock lock(waiting_);
    const UInt32 before = present_.load();
    const UInt32 other = 1 - before;
    waitUntilZero(counts_[other]);
    present_.store(other);
    waitUntilZero(counts_[before]);
}

std::unique_ptr<Retirable> FormerContents::keep(std::shared_ptr<ReaderGate> gate, std::shared_ptr<const void> contents)
{
    return std::make_unique<Replaced>(std::move(gate), std::move(contents));
}

FormerContents::~FormerContents()
{
    if (isInsideCallback()) // which may be the very one that walks them
        retire(contents_.release());
}

} // namespace qmx
