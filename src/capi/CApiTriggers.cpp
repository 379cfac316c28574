// The C API's triggers: the host's callback, the stored triggers, the reports still to send.

#include "capi/CApiCall.hpp"
#include "request/RequestQueue.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <cmath>
#include <cstdlib>

using bvgeo::BVGeoTracker;
using namespace bvgeo::capi;

extern "C" {

bvgeo_status bvgeo_set_trigger_callback(bvgeo_tracker* tracker, bvgeo_trigger_callback callback, void* user_data) {
    CAPI_BEGIN
    SESSION(tracker);
    session->setTriggerCallback(callback, user_data);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_list_triggers(bvgeo_tracker* tracker, bvgeo_trigger** triggers, size_t* count) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(triggers);
    CHECK_NOT_NULL(count);
    *triggers = nullptr;
    *count = 0;
    const auto stored = BVGeoTracker::sharedInstance().listTriggers();
    if (stored.empty()) return succeed();
    auto* list = static_cast<bvgeo_trigger*>(std::calloc(stored.size(), sizeof(bvgeo_trigger)));
    if (!list) return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
    for (std::size_t i = 0; i < stored.size(); ++i) {
        const bvgeo_trigger view = bvgeo::capi::toCTrigger(*stored[i]);
        list[i] = view;
        // The text must outlive the records it points into.
        list[i].device_id = duplicate(view.device_id);
        list[i].fence_id = duplicate(view.fence_id);
        list[i].fence_name = duplicate(view.fence_name);
        if (!list[i].device_id || !list[i].fence_id || !list[i].fence_name) {
            bvgeo_free_triggers(list, i + 1);
            return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
        }
    }
    *triggers = list;
    *count = stored.size();
    return succeed();
    CAPI_END
}

void bvgeo_free_triggers(bvgeo_trigger* triggers, size_t count) {
    if (!triggers) return;
    for (std::size_t i = 0; i < count; ++i) {
        std::free(const_cast<char*>(triggers[i].device_id));
        std::free(const_cast<char*>(triggers[i].fence_id));
        std::free(const_cast<char*>(triggers[i].fence_name));
    }
    std::free(triggers);
}

bvgeo_status bvgeo_pending_reports(bvgeo_tracker* tracker, size_t* count) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(count);
    auto& queue = bvgeo::RequestQueue::sharedInstance();
    *count = queue.requests().size() + queue.retryRequests().size();
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_settle(bvgeo_tracker* tracker, double timeout_seconds) {
    CAPI_BEGIN
    SESSION(tracker);
    NOT_FROM_CALLBACK();
    if (!std::isfinite(timeout_seconds) || timeout_seconds < 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "timeout_seconds " + number(timeout_seconds) + " is not a number of seconds >= 0");
    if (!session->settleWithin(timeout_seconds))
        return FAIL(BVGEO_ERR_TIMEOUT, "the library was still busy after " + number(timeout_seconds) + " s");
    return succeed();
    CAPI_END
}

} // extern "C"
