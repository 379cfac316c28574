// Location service: the device's source of positions. A tracker asks it for a
// LocationManager of its own, tunes that manager and becomes its delegate; the
// service then delivers batches of locations to the delegate on its delivery
// thread. Manager operations may be called from any thread, also from inside a
// delivery to that manager.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/LocationAccuracy.hpp>

#include <limits>
#include <memory>
#include <vector>

namespace bvgeo {

// What kind of solution a receiver reported (the numbering of NMEA GSA and gpsd).
// A 2D fix had too few satellites to solve for height and assumed one, so its
// horizontal error is larger than its dilution of precision suggests.
enum class FixMode : int { Unknown = 0, NoFix = 1, TwoD = 2, ThreeD = 3 };

struct BVGEO_API Location {
    double latitude = 0.0;
    double longitude = 0.0;
    double timestamp = 0.0; // seconds since 1970-01-01 UTC when the fix was taken
    double horizontalAccuracy = -1.0; // metres (radius of about 68% confidence); negative when the source did not say

    // Further quality signals, when the source gives them. Each default means
    // "unknown", which the library never takes for a perfect fix.
    double speed = -1.0;     // metres per second over ground; negative when unknown
    double hdop = -1.0;      // horizontal dilution of precision; negative when unknown
    int satellitesUsed = -1; // negative when unknown
    FixMode fixMode = FixMode::Unknown;

    // Geodesic distance in metres.
    double distanceFrom(const Location& other) const;
};

enum class ActivityType : int { Other = 1, AutomotiveNavigation = 2, Fitness = 3, OtherNavigation = 4, Airborne = 5 };

enum class AuthorizationStatus : int {
    NotDetermined = 0,
    Restricted = 1,
    Denied = 2,
    AuthorizedAlways = 3,
    AuthorizedWhenInUse = 4,
};

class LocationManager;

class BVGEO_API LocationManagerDelegate {
public:
    virtual ~LocationManagerDelegate() = default;

    // A non-empty batch, oldest first, on the service's delivery thread.
    virtual void locationManagerDidUpdateLocations(LocationManager& manager, const std::vector<Location>& locations) = 0;
};

class BVGEO_API LocationManager {
public:
    virtual ~LocationManager() = default;

    // Not owned; must outlive the manager or be cleared first.
    virtual void setDelegate(LocationManagerDelegate* delegate) = 0;
    virtual void setActivityType(ActivityType type) = 0;
    virtual void setDesiredAccuracy(double metres) = 0;
    virtual void setDistanceFilter(double metres) = 0;
    virtual void setPausesLocationUpdatesAutomatically(bool pauses) = 0;

    // False when this manager cannot deliver in the background at all.
    virtual bool supportsBackgroundLocationUpdates() const = 0;
    virtual void setAllowsBackgroundLocationUpdates(bool allows) = 0;

    // Asks the user for permission at all times; answered later, if ever.
    virtual void requestAlwaysAuthorization() = 0;

    // Lets the service hold back updates until `distance` metres were travelled or
    // `timeout` seconds passed.
    virtual void allowDeferredLocationUpdates(double distance, double timeout) = 0;

    virtual void startUpdatingLocation() = 0;
    virtual void stopUpdatingLocation() = 0;
    virtual void startMonitoringSignificantLocationChanges() = 0;
    virtual void stopMonitoringSignificantLocationChanges() = 0;
};

class BVGEO_API LocationService {
public:
    virtual ~LocationService() = default;

    virtual std::unique_ptr<LocationManager> makeLocationManager() = 0;
    virtual AuthorizationStatus authorizationStatus() const = 0;
};

} // namespace bvgeo
