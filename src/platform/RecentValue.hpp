// RecentValue: the last reading of a fact of the machine that cannot change between
// two positions a few seconds apart (battery, routing table), kept with the moment
// it was taken and handed out again while it is younger than a given age. The age
// is measured on a steady clock, not on the platform clock: a replay's virtual time
// jumps by seconds per position while next to no real time passes. An age of zero
// reads every time. Thread-safe: a reading happens under the lock, so callers at the
// same moment share one.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <utility>

namespace bvgeo {

template <class Value>
class RecentValue {
public:
    using SteadyNow = std::function<std::chrono::steady_clock::time_point()>;

    // `now` stands in for the steady clock (tests); empty means the real one.
    explicit RecentValue(std::chrono::steady_clock::duration maxAge, SteadyNow now = {})
        : maxAge_(maxAge), now_(std::move(now)) {}

    template <class Read>
    Value get(Read read) {
        std::lock_guard lock(mutex_);
        if (maxAge_ <= std::chrono::steady_clock::duration::zero()) return read();
        const auto now = now_ ? now_() : std::chrono::steady_clock::now();
        if (!value_ || now - readAt_ >= maxAge_ || now < readAt_) {
            value_ = read();
            readAt_ = now;
        }
        return *value_;
    }

    // The next get() reads again.
    void forget() {
        std::lock_guard lock(mutex_);
        value_.reset();
    }

    void setSteadyNow(SteadyNow now) {
        std::lock_guard lock(mutex_);
        now_ = std::move(now);
        value_.reset();
    }

private:
    const std::chrono::steady_clock::duration maxAge_;
    std::mutex mutex_;
    SteadyNow now_;
    std::optional<Value> value_;
    std::chrono::steady_clock::time_point readAt_{};
};

} // namespace bvgeo
