// RequestQueue: requests the library wants delivered eventually (trigger reports).
// A new request waits for the next pass of the queue timer; a request that fails is
// parked in the retry list and tried again by the retry timer until it goes
// through. Nothing is persisted and the lists have no limit.
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

    // Each call schedules a new one-shot timer; earlier ones still fire.
    void setupTimer();
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

    // Copies of the lists, oldest first.
    std::vector<URLRequest> requests() const;
    std::vector<URLRequest> retryRequests() const;

    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;
    ~RequestQueue();

private:
    RequestQueue();

    mutable std::mutex mutex_;
    std::deque<URLRequest> mRequests;
    std::deque<URLRequest> mRequestsRetry;
};

} // namespace bvgeo
