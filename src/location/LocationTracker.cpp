#include "location/LocationTracker.hpp"

#include "platform/SharedInstance.hpp"

namespace bvgeo {

LocationTracker& LocationTracker::sharedInstance() {
    static SharedInstance<LocationTracker> slot;
    return slot.get([] { return std::unique_ptr<LocationTracker>(new LocationTracker()); });
}

LocationTracker::LocationTracker() : BaseLocationTracker("LocationTracker", TriggerLocationEventType::Regular) {}

void LocationTracker::beginDelivery() { locationManager().startUpdatingLocation(); }
void LocationTracker::endDelivery() { locationManager().stopUpdatingLocation(); }

} // namespace bvgeo
