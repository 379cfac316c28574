#include <bvgeo/platform/virtualtime/ManualDispatchQueues.hpp>

#include "platform/linux/ThreadDispatchQueues.hpp"

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <functional>
#include <thread>

namespace bvgeo::virtualtime {

namespace {

void runGuarded(std::function<void()>& job) {
    try {
        job();
    } catch (...) {
        std::fputs("bvgeo::testing: serial-queue work threw; dropped\n", stderr);
    }
}

// Work posted to the threaded queues and not yet finished. Work posted by running
// work is counted before the running item ends, so zero means truly idle.
class Outstanding {
public:
    void begin() {
        std::lock_guard lock(mutex_);
        ++count_;
    }
    void end() {
        std::lock_guard lock(mutex_);
        if (--count_ == 0) idle_.notify_all();
    }
    void waitUntilIdle() {
        std::unique_lock lock(mutex_);
        idle_.wait(lock, [&] { return count_ == 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable idle_;
    long count_ = 0;
};

// A real serial queue whose work is counted in `outstanding`.
class CountedQueue final : public DispatchQueue {
public:
    CountedQueue(std::shared_ptr<DispatchQueue> inner, std::shared_ptr<Outstanding> outstanding)
        : inner_(std::move(inner)), outstanding_(std::move(outstanding)) {}

    void async(std::function<void()> work) override {
        if (!work) return;
        outstanding_->begin();
        inner_->async([work = std::move(work), outstanding = outstanding_]() mutable {
            runGuarded(work);
            work = nullptr; // what it captured goes before the item counts as done
            outstanding->end();
        });
    }
    const std::string& label() const override { return inner_->label(); }
    bool isCurrent() const override { return inner_->isCurrent(); }

private:
    std::shared_ptr<DispatchQueue> inner_;
    std::shared_ptr<Outstanding> outstanding_;
};

// Thread-backed queues that can be waited on as a whole.
class CountedQueues final : public DispatchQueueFactory {
public:
    std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override {
        return std::make_shared<CountedQueue>(threads_.makeSerialQueue(std::move(label)), outstanding_);
    }
    void waitUntilIdle() { outstanding_->waitUntilIdle(); }

private:
    ThreadDispatchQueues threads_;
    std::shared_ptr<Outstanding> outstanding_ = std::make_shared<Outstanding>();
};

} // namespace

// Work waits in a deque until the factory's runPending() runs it on the pumping
// thread. The mutex guards the deque and which thread is running an item now.
class ManualDispatchQueues::ManualQueue final : public DispatchQueue {
public:
    explicit ManualQueue(std::string label) : label_(std::move(label)) {}

    void async(std::function<void()> work) override {
        if (!work) return;
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    const std::string& label() const override { return label_; }
    bool isCurrent() const override {
        std::lock_guard lock(mutex_);
        return running_ == std::this_thread::get_id();
    }

    // Runs the oldest item, if any.
    bool runOne() {
        std::function<void()> job;
        std::thread::id previous;
        {
            std::lock_guard lock(mutex_);
            if (work_.empty()) return false;
            job = std::move(work_.front());
            work_.pop_front();
            previous = running_;
            running_ = std::this_thread::get_id();
        }
        runGuarded(job);
        job = nullptr;
        std::lock_guard lock(mutex_);
        running_ = previous;
        return true;
    }

private:
    const std::string label_;
    mutable std::mutex mutex_;
    std::deque<std::function<void()>> work_;
    std::thread::id running_;
};

ManualDispatchQueues::ManualDispatchQueues(bool threaded) : threaded_(threaded) {
    if (threaded_) threadedFactory_ = std::make_shared<CountedQueues>();
}

ManualDispatchQueues::~ManualDispatchQueues() = default;

std::shared_ptr<DispatchQueue> ManualDispatchQueues::makeSerialQueue(std::string label) {
    std::shared_ptr<DispatchQueue> queue = threaded_ ? threadedFactory_->makeSerialQueue(std::move(label))
                                                     : std::make_shared<ManualQueue>(std::move(label));
    std::lock_guard lock(mutex_);
    queues_.push_back(queue);
    return queue;
}

int ManualDispatchQueues::runPending() {
    if (threaded_) {
        static_cast<CountedQueues&>(*threadedFactory_).waitUntilIdle();
        return 0;
    }
    int ran = 0;
    for (;;) {
        std::vector<std::shared_ptr<ManualQueue>> live;
        {
            std::lock_guard lock(mutex_);
            for (const auto& weak : queues_)
                if (auto queue = weak.lock()) live.push_back(std::static_pointer_cast<ManualQueue>(queue));
        }
        int round = 0;
        for (const auto& queue : live)
            while (queue->runOne()) ++round;
        if (round == 0) return ran;
        ran += round;
    }
}

std::vector<std::string> ManualDispatchQueues::labels() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    for (const auto& weak : queues_)
        if (auto queue = weak.lock()) result.push_back(queue->label());
    return result;
}

} // namespace bvgeo::virtualtime
