#include "capi/TriggerCallback.hpp"

#include <cstdio>

namespace bvgeo::capi {

namespace {
thread_local int callbackDepth = 0;

// Static text for the enumerations (their raw values), so the C view needs no
// storage of its own.
const char* eventText(TriggerType type) {
    switch (type) {
    case TriggerType::Enter: return "enter";
    case TriggerType::Exit: return "exit";
    case TriggerType::Linger: return "linger";
    }
    return "";
}
const char* locationEventText(TriggerLocationEventType type) {
    switch (type) {
    case TriggerLocationEventType::Unknown: return "unknown";
    case TriggerLocationEventType::Regular: return "regular";
    case TriggerLocationEventType::SignificantChanges: return "significantchanges";
    }
    return "";
}
} // namespace

bvgeo_trigger toCTrigger(const BVTrigger& trigger) {
    bvgeo_trigger c{};
    c.device_id = trigger.deviceId.c_str();
    c.event = eventText(trigger.event);
    c.type = static_cast<int>(trigger.event);
    c.timestamp = trigger.timestamp;
    c.fence_id = trigger.fenceId.c_str();
    c.fence_name = trigger.fenceName.c_str();
    c.location_event = locationEventText(trigger.locationEvent);
    c.location_event_type = static_cast<int>(trigger.locationEvent);
    return c;
}

void TriggerCallback::set(bvgeo_trigger_callback callback, void* userData) {
    std::lock_guard lock(mutex_);
    callback_ = callback;
    userData_ = userData;
}

void TriggerCallback::BVGeoTrackerOnFenceTriggered(BVGeoTracker&, std::shared_ptr<BVTrigger> trigger) {
    if (!trigger) return;
    bvgeo_trigger_callback callback;
    void* userData;
    {
        std::lock_guard lock(mutex_);
        callback = callback_;
        userData = userData_;
    }
    if (!callback) return;
    const bvgeo_trigger c = toCTrigger(*trigger);
    ++callbackDepth;
    try {
        callback(handle_, &c, userData);
    } catch (...) {
        // A C++ host's function may throw through the C boundary; it must not end the
        // main queue's work.
        std::fputs("bvgeo: the trigger callback threw; ignored\n", stderr);
    }
    --callbackDepth;
}

bool TriggerCallback::runningOnThisThread() { return callbackDepth > 0; }

} // namespace bvgeo::capi
