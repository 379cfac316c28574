// LocationTrackerSignificantChanges: the significant-change tracker
// ("LocationTrackerSignificantChanges", event type significantchanges). Its updates
// keep coming while the standard tracker is stopped, and each one wakes it.
#pragma once

#include "location/BaseLocationTracker.hpp"

namespace bvgeo {

class LocationTrackerSignificantChanges final : public BaseLocationTracker {
public:
    static LocationTrackerSignificantChanges& sharedInstance();

private:
    LocationTrackerSignificantChanges();
    void beginDelivery() override;
    void endDelivery() override;
};

} // namespace bvgeo
