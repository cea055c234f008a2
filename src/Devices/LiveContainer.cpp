// SPDX-License-Identifier: MIT
#include "Devices/LiveContainer.h"

#include "Foundation/Threads/Publication.h"

#include <mutex>

namespace qmx
{

struct LiveContents::State {
    explicit State(const Contents& first) : contents(new const Contents(first)) {}
    ~State() { delete contents.load(); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    std::mutex changing;
    Publication walks;
    std::atomic<const Contents*> contents;
};

LiveContents::LiveContents(const Contents& first) : state_(std::make_unique<State>(first)) {}

LiveContents::~LiveContents() = default;

LiveContents::Contents LiveContents::snapshot() const noexcept
{
    const Publication::Reader reader(state_->walks);
    return *state_->contents.load();
}

FormerContents LiveContents::change(const std::function<Contents(const void*)>& edited)
{
    auto former = std::make_shared<Replacement>(state_->walks);
    const std::scoped_lock lock(state_->changing);
    former->replace(state_->contents, std::make_unique<const Contents>(edited(state_->contents.load()->get())));
    return former;
}

unsigned LiveContents::beginWalk() const noexcept
{
    return state_->walks.enter();
}

const void* LiveContents::now() const noexcept
{
    return state_->contents.load()->get();
}

void LiveContents::endWalk(unsigned place) const noexcept
{
    state_->walks.leave(place);
}

} // namespace qmx
