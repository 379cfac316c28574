#include <bvgeo/platform/virtualtime/ManualMainQueue.hpp>

#include <cstdio>

namespace bvgeo::virtualtime {

namespace {

void runGuarded(std::function<void()>& job) {
    try {
        job();
    } catch (...) {
        std::fputs("bvgeo::testing: main-queue work threw; dropped\n", stderr);
    }
}

} // namespace

ManualMainQueue::ManualMainQueue(std::shared_ptr<ManualClock> clock) : clock_(std::move(clock)) {}

void ManualMainQueue::async(std::function<void()> work) {
    if (!work) return;
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
}

TimerId ManualMainQueue::scheduleTimer(double interval, double tolerance, std::function<void()> fire) {
    if (!fire) fire = [] {};
    const double due = clock_->currentTime() + (interval > 0.0 ? interval : 0.0);
    std::lock_guard lock(mutex_);
    TimerId id = nextTimer_++;
    timers_.emplace(id, Timer{due, tolerance, std::move(fire)});
    return id;
}

void ManualMainQueue::cancelTimer(TimerId id) {
    std::function<void()> dropped;
    std::lock_guard lock(mutex_);
    auto it = timers_.find(id);
    if (it == timers_.end()) return;
    dropped = std::move(it->second.fire);
    timers_.erase(it);
    // The lock is released before `dropped` is destroyed (declared first).
}

bool ManualMainQueue::isCurrent() const {
    std::lock_guard lock(mutex_);
    return pumping_ == std::this_thread::get_id();
}

namespace {

// Pumping may nest (a test helper pumps from inside work); the outer pump keeps the
// main thread once the inner one returns.
class PumpScope {
public:
    PumpScope(std::mutex& mutex, std::thread::id& pumping) : mutex_(mutex), pumping_(pumping) {
        std::lock_guard lock(mutex_);
        previous_ = pumping_;
        pumping_ = std::this_thread::get_id();
    }
    ~PumpScope() {
        std::lock_guard lock(mutex_);
        pumping_ = previous_;
    }
    PumpScope(const PumpScope&) = delete;
    PumpScope& operator=(const PumpScope&) = delete;

private:
    std::mutex& mutex_;
    std::thread::id& pumping_;
    std::thread::id previous_;
};

} // namespace

int ManualMainQueue::runPending() {
    PumpScope scope(mutex_, pumping_);
    int ran = 0;
    for (;;) {
        std::function<void()> job;
        {
            std::lock_guard lock(mutex_);
            if (work_.empty()) break;
            job = std::move(work_.front());
            work_.pop_front();
        }
        runGuarded(job);
        ++ran;
    }
    return ran;
}

int ManualMainQueue::fireDueTimers() {
    PumpScope scope(mutex_, pumping_);
    int fired = 0;
    for (;;) {
        std::function<void()> job;
        {
            std::lock_guard lock(mutex_);
            const double now = clock_->currentTime();
            // Earliest due first; among equal due times, the one scheduled first.
            auto next = timers_.end();
            for (auto it = timers_.begin(); it != timers_.end(); ++it)
                if (it->second.due <= now && (next == timers_.end() || it->second.due < next->second.due)) next = it;
            if (next == timers_.end()) break;
            job = std::move(next->second.fire);
            timers_.erase(next);
        }
        runGuarded(job);
        ++fired;
    }
    return fired;
}

void ManualMainQueue::shiftTimers(double seconds) {
    std::lock_guard lock(mutex_);
    for (auto& [id, timer] : timers_) timer.due += seconds;
}

std::optional<double> ManualMainQueue::nextTimerDue() const {
    std::lock_guard lock(mutex_);
    std::optional<double> earliest;
    for (const auto& [id, timer] : timers_)
        if (!earliest || timer.due < *earliest) earliest = timer.due;
    return earliest;
}

std::size_t ManualMainQueue::pendingWork() const {
    std::lock_guard lock(mutex_);
    return work_.size();
}

std::size_t ManualMainQueue::scheduledTimers() const {
    std::lock_guard lock(mutex_);
    return timers_.size();
}

} // namespace bvgeo::virtualtime
