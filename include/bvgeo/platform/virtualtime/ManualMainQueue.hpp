// ManualMainQueue: a main queue pumped by the test. Posted work waits until
// runPending(); timers fire from fireDueTimers() when the manual clock has reached
// their due time (tolerance is not used: a timer fires as soon as it is due).
// Pumping happens on the test's thread, which counts as the main thread meanwhile.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/MainQueue.hpp>
#include <bvgeo/platform/virtualtime/ManualClock.hpp>

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace bvgeo::virtualtime {

class BVGEO_API ManualMainQueue final : public MainQueue {
public:
    explicit ManualMainQueue(std::shared_ptr<ManualClock> clock);

    void async(std::function<void()> work) override;
    TimerId scheduleTimer(double interval, double tolerance, std::function<void()> fire) override;
    void cancelTimer(TimerId id) override;
    bool isCurrent() const override;

    // Runs posted work, including work posted meanwhile, until none is left.
    // Returns how many items ran.
    int runPending();

    // Fires, in due order, every timer due at the clock's current time. Returns how
    // many fired.
    int fireDueTimers();

    // Due time of the earliest scheduled timer.
    std::optional<double> nextTimerDue() const;

    // Moves every scheduled timer by `seconds`: for a clock that is set to where
    // time really starts after timers were already armed against it.
    void shiftTimers(double seconds);

    std::size_t pendingWork() const;
    std::size_t scheduledTimers() const;

private:
    struct Timer {
        double due;
        double tolerance;
        std::function<void()> fire;
    };

    std::shared_ptr<ManualClock> clock_;
    mutable std::mutex mutex_;
    std::deque<std::function<void()>> work_;
    std::map<TimerId, Timer> timers_;
    TimerId nextTimer_ = 1;
    std::thread::id pumping_;
};

} // namespace bvgeo::virtualtime
