#include "capi/VirtualTime.hpp"

#include "request/HTTPClient.hpp"

#include <ctime>

namespace bvgeo::capi {

namespace {
// Bounds that only a library stuck in a loop or a hung server reaches.
constexpr int kMaxSettleRounds = 100'000;
constexpr double kTransferWaitSeconds = 60.0;
constexpr int kMaxTimersPerAdvance = 1'000'000;
} // namespace

VirtualTime::VirtualTime(double startTime)
    : clock_(std::make_shared<virtualtime::ManualClock>(startTime > 0 ? startTime
                                                                       : static_cast<double>(std::time(nullptr)))),
      mainQueue_(std::make_shared<virtualtime::ManualMainQueue>(clock_)),
      queues_(std::make_shared<virtualtime::ManualDispatchQueues>()), started_(startTime > 0) {}

bool VirtualTime::startAt(double time) {
    if (started_) return false;
    started_ = true;
    mainQueue_->shiftTimers(time - clock_->currentTime());
    clock_->set(time);
    return true;
}

bool VirtualTime::settle(std::size_t* ran) {
    auto& http = HTTPClient::sharedInstance();
    for (int round = 0; round < kMaxSettleRounds; ++round) {
        if (!http.waitUntilIdle(kTransferWaitSeconds)) return false;
        const int count = mainQueue_->runPending() + queues_->runPending();
        if (ran) *ran += static_cast<std::size_t>(count);
        if (count == 0 && http.inFlight() == 0 && mainQueue_->pendingWork() == 0) return true;
    }
    return false;
}

bool VirtualTime::advanceTo(double time) {
    if (!settle()) return false;
    for (int fired = 0; fired < kMaxTimersPerAdvance; ++fired) {
        auto due = mainQueue_->nextTimerDue();
        if (!due || *due > time) break;
        if (*due > clock_->currentTime()) clock_->set(*due);
        mainQueue_->fireDueTimers();
        if (!settle()) return false;
    }
    if (time > clock_->currentTime()) clock_->set(time);
    return true;
}

} // namespace bvgeo::capi
