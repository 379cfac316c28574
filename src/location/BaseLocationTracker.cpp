#include "location/BaseLocationTracker.hpp"

#include "datastore/DatabaseConnection.hpp"
#include "location/LocationTracker.hpp"
#include "location/TrackerRules.hpp"
#include "logger/Logger.hpp"
#include "models/DebugLocation.hpp"
#include "settings/TrackerSettings.hpp"
#include "trigger/TriggerManager.hpp"

#include "platform/NumberText.hpp"
#include <bvgeo/platform/Platform.hpp>

#include <algorithm>

namespace bvgeo {

namespace {
constexpr std::string_view kUpdateFunction = "locationManager(_:didUpdateLocations:)";
} // namespace

BaseLocationTracker::BaseLocationTracker(std::string logString, TriggerLocationEventType type)
    : locationManager_(platform().locationService->makeLocationManager()), logString_(std::move(logString)),
      triggerLocationEventType_(type) {}

BaseLocationTracker::~BaseLocationTracker() { locationManager_->setDelegate(nullptr); }

void BaseLocationTracker::configure(LocationTrackerFencePosition position) {
    auto& settings = TrackerSettings::sharedInstance();
    auto config = settings.config();
    auto& manager = *locationManager_;
    manager.setDelegate(this);
    manager.setActivityType(ActivityType::Other);
    manager.setDesiredAccuracy(config.locationAccuracy);
    // Robust triggers confirm a change with the fixes that follow it; a still device
    // would send none through the distance filter (nor the duplicate filter, above).
    manager.setDistanceFilter(confirming_.load(std::memory_order_acquire) ? kDistanceFilterNone
                                                                          : config.locationDistanceFilt);
    manager.setPausesLocationUpdatesAutomatically(position != LocationTrackerFencePosition::Inside);
    if (settings.isDebug())
        Logger::log(logString_ + " configure with " + std::string(rawValue(position)), LogCategory::GENERAL,
                    "configure", 43);
    if (position == LocationTrackerFencePosition::InsideForTooLong) {
        auto& standard = LocationTracker::sharedInstance();
        if (standard.isEnabled()) standard.stop();
    }
}

void BaseLocationTracker::requestAuthorization() {
    auto& service = *platform().locationService;
    if (service.authorizationStatus() != AuthorizationStatus::AuthorizedAlways)
        locationManager_->requestAlwaysAuthorization();
    Logger::log(std::to_string(static_cast<int>(service.authorizationStatus())), LogCategory::GENERAL,
                "requestAuthorization()", 56);
}

void BaseLocationTracker::backgroundSupport() {
    auto modes = platform().application->backgroundModes();
    if (!modes || std::find(modes->begin(), modes->end(), "location") == modes->end()) return;
    if (locationManager_->supportsBackgroundLocationUpdates()) locationManager_->setAllowsBackgroundLocationUpdates(true);
}

void BaseLocationTracker::start() {
    configure(LocationTrackerFencePosition::Unknown);
    requestAuthorization();
    backgroundSupport();
    isEnabled_.store(true, std::memory_order_release);
    Logger::log(logString_ + " Foreground started!", LogCategory::GENERAL, "start()", 146);
    beginDelivery();
}

void BaseLocationTracker::stop() {
    endDelivery();
    isEnabled_.store(false, std::memory_order_release);
    Logger::log(logString_ + " Foreground stopped!", LogCategory::GENERAL, "stop()", 152);
}

void BaseLocationTracker::locationManagerDidUpdateLocations(LocationManager& manager,
                                                            const std::vector<Location>& locations) {
    if (locations.empty()) return;
    // The rows one batch writes (history, log lines, triggers) go out in one commit.
    WriteGroup writes;

    if (triggerLocationEventType_ == TriggerLocationEventType::SignificantChanges) {
        auto& standard = LocationTracker::sharedInstance();
        if (!standard.isEnabled()) standard.start();
    }
    const auto& p = platform();
    int appState = static_cast<int>(p.application->applicationState());
    auto& settings = TrackerSettings::sharedInstance();
    auto config = settings.config();
    manager.allowDeferredLocationUpdates(kLocationDistanceMax, config.locationDeferringTime);
    std::int64_t now = p.clock->now();
    const Location& newest = locations.back();

    Location accepted;
    {
        std::lock_guard lock(positionMutex_);
        // While robust triggers wait for confirming fixes, a repeat is one of them.
        if (isDuplicateUpdate(lastPosition_.distanceFrom(newest), now, lastPositionTime_, config.lingerTime) &&
            !confirming_.load(std::memory_order_acquire))
            return;
        lastPosition_ = newest;
        lastPositionTime_ = now;
        accepted = lastPosition_;
    }

    Logger::log(logString_ + " Location Updated: [" + doubleText(accepted.latitude) + ", " +
                    doubleText(accepted.longitude) + "] - App State: " + std::to_string(appState),
                LogCategory::LOCATION, kUpdateFunction, 101);
    DebugLocation::saveDebugLocation(accepted.latitude, accepted.longitude, logString_);

    LocationMonitoring::triggerActiveFences(accepted, triggerLocationEventType_,
                                            [this](const FenceList& inside, const ActiveFenceList& active) {
                                                fencesProcessed(inside, active);
                                            });

    if (settings.isDebug()) {
        auto& device = *p.device;
        Logger::log(batteryStatusLine(device.batteryState(), device.batteryLevel()), LogCategory::CLIENT,
                    kUpdateFunction, 136);
    }
}

void BaseLocationTracker::fencesProcessed(const FenceList&, const ActiveFenceList& activeFences) {
    std::vector<std::int64_t> activatedAt;
    activatedAt.reserve(activeFences.size());
    for (const auto& fence : activeFences)
        if (fence) activatedAt.push_back(fence->activatedAt);
    auto maxLingerTime = TrackerSettings::sharedInstance().config().maxLingerTime;
    confirming_.store(TrackerSettings::sharedInstance().extendedOptions().triggerFilter.robustTriggers &&
                          TriggerManager::sharedInstance().awaitingConfirmation(),
                      std::memory_order_release);
    configure(fencePositionFor(activatedAt, platform().clock->now(), maxLingerTime));
}

Location BaseLocationTracker::lastPosition() const {
    std::lock_guard lock(positionMutex_);
    return lastPosition_;
}

std::int64_t BaseLocationTracker::lastPositionTime() const {
    std::lock_guard lock(positionMutex_);
    return lastPositionTime_;
}

} // namespace bvgeo
