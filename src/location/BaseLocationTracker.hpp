// BaseLocationTracker: the common body of the two trackers. It owns one location
// manager, is its delegate, and turns each delivered batch into the library's work:
// the duplicate filter, the log line and history row, fence processing, and, when
// fence processing reports back, the fence position rule that re-tunes the manager.
//
// Deliveries arrive on the location service's delivery thread; the fence position
// rule runs on the trigger engine's queue; start/stop come from the host, the
// significant-change delivery thread and the trigger engine. The last position is
// written only by this tracker's own deliveries.
#pragma once

#include "location/LocationMonitoring.hpp"
#include "location/LocationTrackerFencePosition.hpp"

#include <bvgeo/ConfigOptions.hpp>
#include <bvgeo/platform/LocationService.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace bvgeo {

class BaseLocationTracker : public LocationManagerDelegate {
public:
    ~BaseLocationTracker() override;

    // Applies the options and `position` to the manager.
    void configure(LocationTrackerFencePosition position = LocationTrackerFencePosition::Unknown);
    void requestAuthorization();
    void backgroundSupport();
    void start();
    // Ends the delivery this tracker's start began.
    void stop();

    void locationManagerDidUpdateLocations(LocationManager& manager, const std::vector<Location>& locations) override;

    // The fence position rule: what fence processing reports back for a position.
    void fencesProcessed(const FenceList& insideFences, const ActiveFenceList& activeFences);

    Location lastPosition() const;
    std::int64_t lastPositionTime() const;
    const std::string& logString() const { return logString_; }
    TriggerLocationEventType triggerLocationEventType() const { return triggerLocationEventType_; }
    bool isEnabled() const { return isEnabled_.load(std::memory_order_acquire); }

    BaseLocationTracker(const BaseLocationTracker&) = delete;
    BaseLocationTracker& operator=(const BaseLocationTracker&) = delete;

protected:
    BaseLocationTracker(std::string logString, TriggerLocationEventType type);

    virtual void beginDelivery() = 0;
    virtual void endDelivery() = 0;

    LocationManager& locationManager() { return *locationManager_; }

private:
    std::unique_ptr<LocationManager> locationManager_;
    mutable std::mutex positionMutex_; // readers on other threads (tests, debug screens)
    Location lastPosition_;
    std::int64_t lastPositionTime_ = 0;
    const std::string logString_;
    const TriggerLocationEventType triggerLocationEventType_;
    std::atomic<bool> isEnabled_{false};
    std::atomic<bool> confirming_{false}; // robust triggers wait for fixes: no distance or duplicate filter
};

} // namespace bvgeo
