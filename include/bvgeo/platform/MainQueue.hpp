// MainQueue: the host's main thread as the library sees it. Delegate calls and the
// request queue's timers run here, one at a time, in the order they were posted.
// `async` and the timer operations may be called from any thread.
#pragma once

#include <bvgeo/Export.hpp>

#include <cstdint>
#include <functional>

namespace bvgeo {

using TimerId = std::uint64_t;

class BVGEO_API MainQueue {
public:
    virtual ~MainQueue() = default;

    // Runs `work` later on the main queue, after everything posted before it.
    virtual void async(std::function<void()> work) = 0;

    // One-shot timer: `fire` runs on the main queue once, no earlier than `interval`
    // seconds from now and, when the queue is not busy, no later than `interval` +
    // `tolerance`. Returns an id for `cancelTimer`; ids are never 0.
    virtual TimerId scheduleTimer(double interval, double tolerance, std::function<void()> fire) = 0;

    // A cancelled timer does not fire. Cancelling a fired or unknown id does nothing.
    virtual void cancelTimer(TimerId id) = 0;

    // True on the thread that is running the main queue's work right now.
    virtual bool isCurrent() const = 0;
};

} // namespace bvgeo
