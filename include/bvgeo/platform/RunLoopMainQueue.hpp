// RunLoopMainQueue: a MainQueue served by one thread, either the host's (it calls
// run(), which returns after stop()) or one the queue starts itself. Timers are
// measured on the steady clock and fire as soon as they are due, which is always
// inside their tolerance window; timers due at the same wake-up fire together.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/MainQueue.hpp>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

namespace bvgeo {

class BVGEO_API RunLoopMainQueue final : public MainQueue {
public:
    RunLoopMainQueue() = default;
    ~RunLoopMainQueue() override; // stops and joins the own thread, if any

    void async(std::function<void()> work) override;
    TimerId scheduleTimer(double interval, double tolerance, std::function<void()> fire) override;
    void cancelTimer(TimerId id) override;
    bool isCurrent() const override;

    // Serves the queue on the calling thread until stop().
    void run();
    // Runs, on the calling thread, the timers due now and the work posted before the
    // call, then returns how many ran: for a host whose own loop calls it often.
    // Does nothing (returns 0) while another thread is in run().
    int runPending();
    // Serves the queue on a new thread of its own.
    void startThread();
    // Makes run() return once the item in progress is done. Pending work stays.
    void stop();

private:
    using SteadyTime = std::chrono::steady_clock::time_point;
    struct Timer {
        SteadyTime due;
        std::function<void()> fire;
    };

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> work_;
    std::map<TimerId, Timer> timers_;
    TimerId nextTimer_ = 1;
    bool stopping_ = false;
    std::thread::id runner_;
    std::thread own_;
};

} // namespace bvgeo
