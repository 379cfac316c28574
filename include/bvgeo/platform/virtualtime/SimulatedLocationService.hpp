// SimulatedLocationService: a location service fed by hand (tests, track replay,
// hosts without hardware). `push` delivers one fix, on the calling thread, to every
// manager whose delivery is running:
//  - standard delivery honours the manager's distance filter: a fix closer than the
//    filter to the last fix delivered to that manager is held back;
//  - significant-change monitoring gets a fix only when the device moved at least
//    500 m since the last significant-change delivery to that manager (the first fix
//    always counts).
// A manager receives at most one batch per fix. A host whose own source tells
// standard updates from significant-change ones pushes each to its kind only
// (SimulatedDelivery). Every setting a tracker makes is recorded so tests can
// assert on it.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/LocationService.hpp>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

// What a tracker has done to one simulated manager so far.
struct BVGEO_API SimulatedManagerState {
    bool hasDelegate = false;
    std::optional<ActivityType> activityType;
    std::optional<double> desiredAccuracy;
    std::optional<double> distanceFilter;
    std::optional<bool> pausesLocationUpdatesAutomatically;
    std::optional<bool> allowsBackgroundLocationUpdates;
    int authorizationRequests = 0;
    int deferredRequests = 0;
    double deferredDistance = 0.0;
    double deferredTimeout = 0.0;
    bool updatingLocation = false;
    bool monitoringSignificantChanges = false;
    int batchesDelivered = 0;
};

// Which deliveries a pushed fix is offered to.
enum class SimulatedDelivery : int {
    Automatic = 0,         // both, by the rules above
    Standard = 1,          // standard delivery only, distance filter honoured
    SignificantChange = 2, // significant-change monitoring only, as it is (the source judged the move)
};

class BVGEO_API SimulatedLocationService final : public LocationService {
public:
    static constexpr double kSignificantChangeDistance = 500.0;

    SimulatedLocationService();
    ~SimulatedLocationService() override;

    std::unique_ptr<LocationManager> makeLocationManager() override;
    AuthorizationStatus authorizationStatus() const override;

    void setAuthorizationStatus(AuthorizationStatus status);
    // Whether new managers can deliver in the background (default true).
    void setSupportsBackgroundUpdates(bool supported);

    // Delivers one fix as described above; returns how many managers received it.
    int push(const Location& fix, SimulatedDelivery delivery = SimulatedDelivery::Automatic);
    int push(double latitude, double longitude, double time) { return push(Location{latitude, longitude, time}); }

    // One entry per manager alive, in creation order.
    std::vector<SimulatedManagerState> managerStates() const;

private:
    class Manager;
    friend class Manager;

    struct Entry;
    mutable std::mutex mutex_;
    std::vector<Manager*> managers_;
    AuthorizationStatus status_ = AuthorizationStatus::AuthorizedAlways;
    bool supportsBackground_ = true;
};

} // namespace bvgeo
