#include "location/LocationTrackerSignificantChanges.hpp"

#include "platform/SharedInstance.hpp"

namespace bvgeo {

LocationTrackerSignificantChanges& LocationTrackerSignificantChanges::sharedInstance() {
    static SharedInstance<LocationTrackerSignificantChanges> slot;
    return slot.get(
        [] { return std::unique_ptr<LocationTrackerSignificantChanges>(new LocationTrackerSignificantChanges()); });
}

LocationTrackerSignificantChanges::LocationTrackerSignificantChanges()
    : BaseLocationTracker("LocationTrackerSignificantChanges", TriggerLocationEventType::SignificantChanges) {}

void LocationTrackerSignificantChanges::beginDelivery() { locationManager().startMonitoringSignificantLocationChanges(); }
void LocationTrackerSignificantChanges::endDelivery() { locationManager().stopMonitoringSignificantLocationChanges(); }

} // namespace bvgeo
