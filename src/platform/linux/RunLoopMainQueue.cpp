#include <bvgeo/platform/RunLoopMainQueue.hpp>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

namespace bvgeo {

namespace {

// A century: long enough to mean "never", short enough not to overflow the clock.
constexpr double kLongestInterval = 100.0 * 365 * 24 * 3600;

std::chrono::steady_clock::duration toDuration(double seconds) {
    if (!(seconds > 0.0)) return {}; // negative and NaN mean "now"
    seconds = std::min(seconds, kLongestInterval);
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

void runGuarded(std::function<void()>& job) {
    try {
        job();
    } catch (...) {
        std::fputs("bvgeo: work on the main queue threw; dropped\n", stderr);
    }
}

} // namespace

RunLoopMainQueue::~RunLoopMainQueue() {
    stop();
    if (own_.joinable()) own_.join();
}

void RunLoopMainQueue::async(std::function<void()> work) {
    if (!work) return;
    {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    wake_.notify_all();
}

TimerId RunLoopMainQueue::scheduleTimer(double interval, double /*tolerance*/, std::function<void()> fire) {
    if (!fire) fire = [] {}; // an empty timer still occupies its id until it fires
    const auto due = std::chrono::steady_clock::now() + toDuration(interval);
    TimerId id;
    {
        std::lock_guard lock(mutex_);
        id = nextTimer_++;
        timers_.emplace(id, Timer{due, std::move(fire)});
    }
    wake_.notify_all();
    return id;
}

void RunLoopMainQueue::cancelTimer(TimerId id) {
    std::function<void()> dropped;
    {
        std::lock_guard lock(mutex_);
        auto it = timers_.find(id);
        if (it == timers_.end()) return;
        dropped = std::move(it->second.fire);
        timers_.erase(it);
    }
    // `dropped` is destroyed here, outside the lock, in case it owns something whose
    // destructor comes back to this queue.
}

bool RunLoopMainQueue::isCurrent() const {
    std::lock_guard lock(mutex_);
    return runner_ == std::this_thread::get_id();
}

void RunLoopMainQueue::run() {
    std::unique_lock lock(mutex_);
    runner_ = std::this_thread::get_id();

    // Work runs without the lock, and what it captured is destroyed without it too,
    // since either may post, schedule or cancel.
    auto runUnlocked = [&](std::function<void()> job) {
        lock.unlock();
        runGuarded(job);
        job = nullptr;
        lock.lock();
    };
    // Ids of every timer due by `now`, earliest first.
    auto dueTimers = [&](SteadyTime now) {
        std::vector<std::pair<SteadyTime, TimerId>> due;
        for (const auto& [id, timer] : timers_)
            if (timer.due <= now) due.emplace_back(timer.due, id);
        std::sort(due.begin(), due.end());
        return due;
    };
    auto earliestDue = [&] {
        SteadyTime earliest = SteadyTime::max();
        for (const auto& entry : timers_) earliest = std::min(earliest, entry.second.due);
        return earliest;
    };

    // Turns alternate between posted work and due timers, so neither starves the other.
    bool timersTurn = false;
    while (!stopping_) {
        auto due = dueTimers(std::chrono::steady_clock::now());
        if (!due.empty() && (timersTurn || work_.empty())) {
            // The first due timer takes along every other one whose window has opened,
            // so timers that were allowed to drift fire together.
            timersTurn = false;
            for (const auto& entry : due) {
                if (stopping_) break;
                auto it = timers_.find(entry.second);
                if (it == timers_.end()) continue; // cancelled by an earlier one of the batch
                auto fire = std::move(it->second.fire);
                timers_.erase(it);
                runUnlocked(std::move(fire));
            }
        } else if (!work_.empty()) {
            timersTurn = true;
            auto job = std::move(work_.front());
            work_.pop_front();
            runUnlocked(std::move(job));
        } else if (timers_.empty()) {
            wake_.wait(lock);
        } else {
            wake_.wait_until(lock, earliestDue());
        }
    }
    stopping_ = false;
    runner_ = {};
}

int RunLoopMainQueue::runPending() {
    std::unique_lock lock(mutex_);
    const auto self = std::this_thread::get_id();
    if (runner_ != std::thread::id{} && runner_ != self) return 0;
    const auto previous = runner_;
    runner_ = self;
    int ran = 0;
    auto runUnlocked = [&](std::function<void()> job) {
        lock.unlock();
        runGuarded(job);
        job = nullptr;
        lock.lock();
        ++ran;
    };

    // Only what is due or posted now: work that keeps posting work must not hold the
    // host's loop here for ever.
    std::vector<std::pair<SteadyTime, TimerId>> due;
    const auto now = std::chrono::steady_clock::now();
    for (const auto& [id, timer] : timers_)
        if (timer.due <= now) due.emplace_back(timer.due, id);
    std::sort(due.begin(), due.end());
    for (const auto& entry : due) {
        auto it = timers_.find(entry.second);
        if (it == timers_.end()) continue; // cancelled by an earlier one
        auto fire = std::move(it->second.fire);
        timers_.erase(it);
        runUnlocked(std::move(fire));
    }
    for (std::size_t posted = work_.size(); posted > 0 && !work_.empty(); --posted) {
        auto job = std::move(work_.front());
        work_.pop_front();
        runUnlocked(std::move(job));
    }
    runner_ = previous;
    return ran;
}

void RunLoopMainQueue::startThread() {
    std::lock_guard lock(mutex_);
    if (own_.joinable()) return;
    own_ = std::thread([this] { run(); });
}

void RunLoopMainQueue::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
}

} // namespace bvgeo
