// ManualClock: a clock that stands still until the test sets or advances it.
#pragma once

#include <bvgeo/platform/Clock.hpp>
#include <bvgeo/Export.hpp>

#include <atomic>

namespace bvgeo::virtualtime {

class BVGEO_API ManualClock final : public Clock {
public:
    explicit ManualClock(double start = 1'500'000'000.0) : time_(start) {}

    double currentTime() const override { return time_.load(std::memory_order_acquire); }

    void set(double secondsSince1970) { time_.store(secondsSince1970, std::memory_order_release); }
    void advance(double seconds) { set(currentTime() + seconds); }

private:
    std::atomic<double> time_;
};

} // namespace bvgeo::virtualtime
