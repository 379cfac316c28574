#include "tracker/Quiescence.hpp"

#include "request/HTTPClient.hpp"
#include "request/Outbox.hpp"
#include "request/RequestQueue.hpp"
#include "settings/TrackerSettings.hpp"
#include "trigger/TriggerManager.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>
#include <chrono>

namespace bvgeo {

namespace {

using Clock = std::chrono::steady_clock;

double secondsLeft(Clock::time_point deadline) {
    return std::max(0.0, std::chrono::duration<double>(deadline - Clock::now()).count());
}

Clock::time_point deadlineIn(double seconds) {
    // Clamped: a caller's "wait for ever" must not overflow the time point.
    const double bounded = std::clamp(seconds, 0.0, 365.0 * 24 * 3600);
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
}

bool settleUntil(Clock::time_point deadline, const DrainQueues& drain) {
    auto& http = HTTPClient::sharedInstance();
    for (;;) {
        const auto started = http.requestsStarted();
        const auto jobs = TriggerManager::jobsQueued();
        if (!http.waitUntilIdle(secondsLeft(deadline))) return false;
        if (!drain(secondsLeft(deadline))) return false;
        // A transfer that ended queued a job; a job or a delegate call may have
        // handed over another fix or sent something: one more round then.
        if (http.inFlight() == 0 && http.requestsStarted() == started && TriggerManager::jobsQueued() == jobs)
            return true;
        if (Clock::now() >= deadline) return false;
    }
}

} // namespace

bool settleLibrary(double timeoutSeconds, const DrainQueues& drain) {
    return settleUntil(deadlineIn(timeoutSeconds), drain);
}

FlushResult flushLibrary(double timeoutSeconds, const DrainQueues& drain) {
    const auto deadline = deadlineIn(timeoutSeconds);
    FlushResult result;
    result.settled = settleUntil(deadline, drain);
    auto& queue = RequestQueue::sharedInstance();
    const bool pending = !queue.requests().empty(), retrying = !queue.retryRequests().empty();
    if (pending || retrying) {
        // The passes the timers would make later, made now; each list only when it
        // holds something, so an empty one adds no log line.
        platform().mainQueue->async([pending, retrying] {
            auto& q = RequestQueue::sharedInstance();
            if (pending) q.processQueue();
            if (retrying) q.processRetryQueue();
        });
        result.settled = settleUntil(deadline, drain) && result.settled;
    }
    result.reportsOwed = queue.requests().size() + queue.retryRequests().size();
    if (TrackerSettings::sharedInstance().extendedOptions().durableDelivery)
        result.reportsInOutbox = Outbox::sharedInstance().count();
    return result;
}

} // namespace bvgeo
