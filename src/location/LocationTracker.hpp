// LocationTracker: the standard tracker ("LocationTracker", event type regular).
// Started and stopped by the facade; also stopped by the fence position rule after a
// long stay inside and started again by the next significant-change update.
#pragma once

#include "location/BaseLocationTracker.hpp"

namespace bvgeo {

class LocationTracker final : public BaseLocationTracker {
public:
    static LocationTracker& sharedInstance();

private:
    LocationTracker();
    void beginDelivery() override;
    void endDelivery() override;
};

} // namespace bvgeo
