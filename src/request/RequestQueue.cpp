#include "request/RequestQueue.hpp"

#include "logger/Logger.hpp"
#include "platform/SharedInstance.hpp"
#include "request/HTTPClient.hpp"
#include "request/Outbox.hpp"
#include "settings/TrackerSettings.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>
#include <optional>
#include <string>

namespace bvgeo {

namespace {

// Takes the first element out, or nothing; with the lock held for just that.
std::optional<URLRequest> front(std::mutex& mutex, const std::deque<URLRequest>& list) {
    std::lock_guard lock(mutex);
    if (list.empty()) return std::nullopt;
    return list.front();
}

void removeFirstEqual(std::mutex& mutex, std::deque<URLRequest>& list, const URLRequest& request) {
    std::lock_guard lock(mutex);
    auto found = std::find(list.begin(), list.end(), request);
    if (found != list.end()) list.erase(found);
}

} // namespace

RequestQueue& RequestQueue::sharedInstance() {
    static SharedInstance<RequestQueue> slot;
    return slot.get([] { return std::unique_ptr<RequestQueue>(new RequestQueue()); });
}

RequestQueue::RequestQueue() = default;
RequestQueue::~RequestQueue() = default;

// The timers reach the queue through sharedInstance() rather than `this`: a timer
// may outlive the instance that set it (a test resetting the shared instances).
void RequestQueue::setupTimer() {
    platform().mainQueue->async([] {
        const auto config = TrackerSettings::sharedInstance().config();
        platform().mainQueue->scheduleTimer(config.requestQueueTimer, config.requestQueueTolerance,
                                            [] { RequestQueue::sharedInstance().processQueue(); });
    });
}

// One retry timer at a time: a pass sends everything in the retry list, so a second
// timer would only send the same requests again before their interval is up, and
// every failure arming its own timer multiplies the passes during an outage.
void RequestQueue::setupRetryTimer() {
    {
        std::lock_guard lock(mutex_);
        if (retryTimerArmed_) return;
        retryTimerArmed_ = true;
    }
    platform().mainQueue->async([] {
        const auto config = TrackerSettings::sharedInstance().config();
        platform().mainQueue->scheduleTimer(config.requestQueueRetryInterval, config.requestQueueTolerance,
                                            [] { RequestQueue::sharedInstance().retryTimerFired(); });
    });
}

void RequestQueue::retryTimerFired() {
    {
        std::lock_guard lock(mutex_);
        retryTimerArmed_ = false;
    }
    processRetryQueue();
}

void RequestQueue::addRequestToQueue(const URLRequest& request) {
    Logger::log("New Request added to queue: " + request.url, LogCategory::REQUESTS, "addRequestToQueue", 40);
    {
        std::lock_guard lock(mutex_);
        mRequests.push_back(request);
    }
    setupTimer();
}

void RequestQueue::addRequestTORetryQueue(const URLRequest& request) {
    std::lock_guard lock(mutex_);
    if (std::find(mRequestsRetry.begin(), mRequestsRetry.end(), request) == mRequestsRetry.end())
        mRequestsRetry.push_back(request);
}

void RequestQueue::processQueue() {
    std::size_t count = 0;
    {
        std::lock_guard lock(mutex_);
        count = mRequests.size();
    }
    if (count > 0) {
        Logger::log("Processing Queue: " + std::to_string(count) + " requests on queue", LogCategory::REQUESTS,
                    "processQueue()", 76);
        while (auto request = front(mutex_, mRequests)) {
            performRequest(*request);
            removeRequestFromQueue(*request);
        }
        setupTimer();
    }
    Logger::log("Queue empty!", LogCategory::REQUESTS, "processQueue()", 80);
}

void RequestQueue::processRetryQueue() {
    std::size_t count = 0;
    {
        std::lock_guard lock(mutex_);
        count = mRequestsRetry.size();
    }
    if (count > 0) {
        Logger::log("Processing Retry Queue: " + std::to_string(count) + " requests on queue",
                    LogCategory::REQUESTS, "processRetryQueue()", 92);
        // The whole list is taken out at once: a send that fails at once lands back in
        // the list while this pass runs, and must wait for the next pass, not go again.
        std::deque<URLRequest> batch;
        {
            std::lock_guard lock(mutex_);
            batch.swap(mRequestsRetry);
        }
        for (const auto& request : batch) performRequest(request);
        setupRetryTimer();
    }
    Logger::log("Retry Queue empty!", LogCategory::REQUESTS, "processRetryQueue()", 101);
}

void RequestQueue::restoreOutbox() {
    if (!TrackerSettings::sharedInstance().extendedOptions().durableDelivery) return;
    {
        std::lock_guard lock(mutex_);
        if (outboxRestored_) return;
        outboxRestored_ = true;
    }
    for (auto& report : Outbox::sharedInstance().pending()) addRequestToQueue(report.request);
}

void RequestQueue::performRequest(const URLRequest& request) {
    HTTPClient::sharedInstance().performRequest(
        request,
        [request](const nlohmann::json&, const HTTPResponse&) {
            Logger::log("Request Completed Successfully: " + request.url, LogCategory::REQUESTS, "performRequest",
                        111);
            if (TrackerSettings::sharedInstance().extendedOptions().durableDelivery)
                if (auto key = request.value(Outbox::kKeyHeader)) Outbox::sharedInstance().remove(*key);
        },
        [request](const HTTPResponse&, const HTTPError&) {
            Logger::log("Request Error: " + request.url, LogCategory::REQUESTS, "performRequest", 114);
            auto& queue = RequestQueue::sharedInstance();
            queue.addRequestTORetryQueue(request);
            queue.setupRetryTimer();
        });
}

void RequestQueue::removeRequestFromQueue(const URLRequest& request) { removeFirstEqual(mutex_, mRequests, request); }

void RequestQueue::removeRequestFromRetryQueue(const URLRequest& request) {
    removeFirstEqual(mutex_, mRequestsRetry, request);
}

std::vector<URLRequest> RequestQueue::requests() const {
    std::lock_guard lock(mutex_);
    return {mRequests.begin(), mRequests.end()};
}

std::vector<URLRequest> RequestQueue::retryRequests() const {
    std::lock_guard lock(mutex_);
    return {mRequestsRetry.begin(), mRequestsRetry.end()};
}

} // namespace bvgeo
