// TriggerCallback: the facade's delegate for a C host. It turns each BVTrigger into
// a bvgeo_trigger whose text points into the trigger and calls the host's function
// pointer with it, on the main queue, where the facade's trigger engine posts it.
// The pointer and its user data may be replaced from any thread; a call already
// under way finishes with the old pair.
#pragma once

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/bvgeo.h>

#include <mutex>

namespace bvgeo::capi {

class TriggerCallback final : public BVGeoTrackerDelegate {
public:
    explicit TriggerCallback(bvgeo_tracker* handle) : handle_(handle) {}

    void set(bvgeo_trigger_callback callback, void* userData);

    void BVGeoTrackerOnFenceTriggered(BVGeoTracker& tracker, std::shared_ptr<BVTrigger> trigger) override;

    // True while the calling thread is inside a host callback: the C API refuses
    // from there what would pump the main queue again or tear the library down.
    static bool runningOnThisThread();

private:
    bvgeo_tracker* const handle_;
    std::mutex mutex_;
    bvgeo_trigger_callback callback_ = nullptr;
    void* userData_ = nullptr;
};

// The C view of a trigger; its text points into `trigger`, which must outlive it.
bvgeo_trigger toCTrigger(const BVTrigger& trigger);

} // namespace bvgeo::capi
