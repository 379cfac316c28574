// VirtualTime: the clock, main queue and serial queues of a C host that drives time
// itself (BVGEO_MAIN_QUEUE_VIRTUAL_TIME). Nothing moves until the host calls in:
// work runs on the calling thread, which counts as the main thread meanwhile; HTTP
// completions arrive on the transport thread and are waited for before time moves
// on, so a replay gives what a device would have produced over the same hours.
// One thread at a time (the C API holds a lock around every call).
#pragma once

#include <bvgeo/platform/virtualtime/ManualClock.hpp>
#include <bvgeo/platform/virtualtime/ManualDispatchQueues.hpp>
#include <bvgeo/platform/virtualtime/ManualMainQueue.hpp>

#include <cstddef>
#include <memory>
#include <optional>

namespace bvgeo::capi {

class VirtualTime {
public:
    // `startTime` 0: time starts where the host first puts it (the first fix's time,
    // or advanceTo); until then the clock reads the wall clock's now.
    explicit VirtualTime(double startTime);

    // Before time started: sets the clock to `time`, carrying timers armed meanwhile
    // along, so they keep their delays. False (nothing done) once time runs.
    bool startAt(double time);
    bool started() const { return started_; }

    const std::shared_ptr<virtualtime::ManualClock>& clock() const { return clock_; }
    const std::shared_ptr<virtualtime::ManualMainQueue>& mainQueue() const { return mainQueue_; }
    const std::shared_ptr<virtualtime::ManualDispatchQueues>& queues() const { return queues_; }

    double now() const { return clock_->currentTime(); }

    // Runs queued work and waits for transfers until nothing is left; adds how many
    // items ran to `ran`. False when the library kept busy past the bounds (a
    // transfer hung, work kept being posted).
    bool settle(std::size_t* ran = nullptr);
    // Fires every timer due up to `time`, in order, each at its due time, running
    // what it started; then leaves the clock at `time` (never moves it backwards).
    bool advanceTo(double time);
    std::optional<double> nextTimer() const { return mainQueue_->nextTimerDue(); }

private:
    std::shared_ptr<virtualtime::ManualClock> clock_;
    std::shared_ptr<virtualtime::ManualMainQueue> mainQueue_;
    std::shared_ptr<virtualtime::ManualDispatchQueues> queues_;
    bool started_;
};

} // namespace bvgeo::capi
