// RequestQueue: requests the library wants delivered eventually (trigger reports).
// A new request waits for the next pass of the queue timer; a request that fails is
// parked in the retry list and tried again by the retry timer until it goes
// through. At most one retry timer is armed at a time, so however many sends fail,
// each waiting request goes out once per retry interval. The lists live in memory
// and have no limit; with durable delivery on, trigger reports are also kept in the
// outbox, and those left over by an earlier process join the pending list the
// first time the queue is used.
//
// Passes and timers run on the main queue; adding and the failure path (which runs
// on the HTTP transport thread) may happen on any thread. The lists are guarded by a
// mutex held only while they are read or changed, never across a call out.
#pragma once

#include "request/URLRequest.hpp"

#include <deque>
#include <mutex>
#include <vector>

namespace bvgeo {

class RequestQueue {
public:
    static RequestQueue& sharedInstance();

    // Schedules a new one-shot timer; earlier ones still fire.
    void setupTimer();
    // Schedules the retry timer unless one is armed already.
    void setupRetryTimer();

    void addRequestToQueue(const URLRequest& request);
    // Appends only when no equal request is waiting for a retry already.
    void addRequestTORetryQueue(const URLRequest& request);

    // Main queue.
    void processQueue();
    void processRetryQueue();

    void performRequest(const URLRequest& request);

    // Remove the first equal request, if any.
    void removeRequestFromQueue(const URLRequest& request);
    void removeRequestFromRetryQueue(const URLRequest& request);

    // Queues the reports an earlier process left in the outbox, once per queue;
    // does nothing while durable delivery is off.
    void restoreOutbox();

    // Copies of the lists, oldest first.
    std::vector<URLRequest> requests() const;
    std::vector<URLRequest> retryRequests() const;

    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;
    ~RequestQueue();

private:
    RequestQueue();
    void retryTimerFired();

    mutable std::mutex mutex_;
    std::deque<URLRequest> mRequests;
    std::deque<URLRequest> mRequestsRetry;
    bool retryTimerArmed_ = false;
    bool outboxRestored_ = false;
};

} // namespace bvgeo
