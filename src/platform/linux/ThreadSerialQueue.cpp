#include "platform/linux/ThreadSerialQueue.hpp"

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>

namespace bvgeo {

struct ThreadSerialQueue::State {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> work;
    bool closing = false;
};

namespace {
// The queue whose thread this is; each queue thread serves exactly one queue.
thread_local const void* currentQueue = nullptr;
} // namespace

ThreadSerialQueue::ThreadSerialQueue(std::string label)
    : label_(std::move(label)), state_(std::make_shared<State>()), thread_(serve, state_) {}

ThreadSerialQueue::~ThreadSerialQueue() {
    {
        std::lock_guard lock(state_->mutex);
        state_->closing = true;
    }
    state_->wake.notify_one();
    if (isCurrent())
        thread_.detach();
    else
        thread_.join();
}

void ThreadSerialQueue::async(std::function<void()> work) {
    if (!work) return;
    {
        std::lock_guard lock(state_->mutex);
        state_->work.push_back(std::move(work));
    }
    state_->wake.notify_one();
}

bool ThreadSerialQueue::isCurrent() const { return currentQueue == state_.get(); }

void ThreadSerialQueue::serve(std::shared_ptr<State> state) {
    currentQueue = state.get();
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(state->mutex);
            state->wake.wait(lock, [&] { return state->closing || !state->work.empty(); });
            if (state->work.empty()) break; // closing, and everything posted has run
            job = std::move(state->work.front());
            state->work.pop_front();
        }
        try {
            job();
        } catch (...) {
            std::fputs("bvgeo: work on a serial queue threw; dropped\n", stderr);
        }
        // `job` goes out of scope here, without the lock: what it captured may be the
        // last reference to this queue.
    }
    currentQueue = nullptr;
}

} // namespace bvgeo
