// BVGeoTracker: the one object a host talks to. Configure it once (application id,
// trigger mode, environment), optionally tune it, register a delegate, then start
// and stop tracking. What it is told reaches the rest of the library through the
// library's settings; the getters here read the same values back.
//
// All operations may be called from any thread; properties are read as whole
// copies. The delegate is always called on the main queue. Nothing throws.
#pragma once

#include <bvgeo/BVError.hpp>
#include <bvgeo/BVTrigger.hpp>
#include <bvgeo/ConfigOptions.hpp>
#include <bvgeo/ExtendedOptions.hpp>
#include <bvgeo/Export.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

class BVGeoTracker;

class BVGEO_API BVGeoTrackerDelegate {
public:
    virtual ~BVGeoTrackerDelegate() = default;
    // Once per trigger, on the main queue, after the trigger was stored.
    virtual void BVGeoTrackerOnFenceTriggered(BVGeoTracker& tracker, std::shared_ptr<BVTrigger> trigger) = 0;
};

// The API and assets base URLs of one environment.
struct BVGEO_API EnvironmentURLs {
    std::string apiBase;    // ends in "/api/v1/app/"
    std::string assetsBase; // ends in "/"

    bool operator==(const EnvironmentURLs&) const = default;
};

// What flush() left: reports the server has not taken yet, and of those, with
// durable delivery, how many wait in the outbox for the next start().
struct BVGEO_API FlushResult {
    bool settled = false;        // every fix handed over was decided within the deadline
    std::size_t reportsOwed = 0;
    std::size_t reportsInOutbox = 0;
};

// Zone cache: what BVGeoTracker::preloadZones did.
struct BVGEO_API ZonePreload {
    std::size_t loaded = 0;  // zone files taken into the zone cache
    std::size_t skipped = 0; // files passed over, each with a ZONE log line saying why
    std::string error;       // why the directory could not be used at all; empty otherwise
};

class BVGEO_API BVGeoTracker {
public:
    static BVGeoTracker& sharedInstance();

    void configure(const std::string& appId, int triggerMode = 0, int environment = 0);
    void setParameters(double accuracy = kLocationAccuracyHundredMeters, double distanceFilter = 50.0,
                       std::int64_t cacheExpiration = 3600, double zoneInterval = 0.2, std::int64_t lingerTime = 300,
                       std::int64_t maxLingerTime = 7200, double requestRetryInterval = 120.0);
    void start();
    void stop();
    void setTriggerDelegate(std::shared_ptr<BVGeoTrackerDelegate> delegate);
    bool verifyParams(const std::optional<std::string>& appId);
    std::string getDeviceId();
    std::string getAppId() const;
    void log(const std::string& message);

    // Archives the database as `name`.sqlite beside it and starts afresh. Both
    // closures run on the caller's thread before this returns.
    void reset(const std::string& name, const std::function<void()>& success,
               const std::function<void(const BVError& error)>& failure);

    // Options beyond the configuration (durable delivery and the like). Set them
    // before start(): services read them when they first need them.
    void setExtendedOptions(const ExtendedOptions& options);
    ExtendedOptions extendedOptions() const;

    // Zone cache: fills it from zone files the host ships, laid out as
    // `bvgeo zones build --out DIR` writes them (DIR, or its <appId>/zones folder),
    // so that a device starting where there is no network has fences. Needs a
    // configure() (the app id), a zone cache (ExtendedOptions::zoneCache) and the
    // zoneInterval the files were built for (setParameters first). Zones already
    // cached keep their copy; files of another name, grid or app id, or that are
    // no zone file, are skipped with a log line. Runs on the caller's thread.
    ZonePreload preloadZones(const std::string& directory);

    // Every stored trigger, oldest first.
    std::vector<std::shared_ptr<BVTrigger>> listTriggers();

    // Waits until every fix the location service delivered before the call is
    // decided: zone answers in, trigger jobs run, delegate calls made, reports
    // queued. The main queue must be served by another thread meanwhile. False when
    // `timeoutSeconds` (real time) ran out first, or when called on the main queue,
    // which it would have to wait for.
    bool settle(double timeoutSeconds);
    // The teardown before a process ends: settle, then send at once the trigger
    // reports still owed and wait for the answers, all within `timeoutSeconds`.
    // Call stop() first so no new fix comes in. Same thread rules as settle().
    FlushResult flush(double timeoutSeconds);

    // Replaces the base URLs of one environment; takes effect at the next configure.
    void setEnvironmentURLs(BVEnvironment environment, EnvironmentURLs urls);
    EnvironmentURLs environmentURLs(BVEnvironment environment) const;

    // Properties.
    std::string apiUrl() const;
    void setApiUrl(std::string url);
    std::string zonesBaseUrl() const;
    void setZonesBaseUrl(std::string url);
    bool isDebug() const;
    void setIsDebug(bool debug);
    BVEnvironment environment() const;
    configOptions config() const;
    std::string appId() const;
    void setAppId(std::string appId);
    bool isConfigured() const;
    void setIsConfigured(bool configured);
    TriggerMode triggerMode() const;
    std::shared_ptr<BVGeoTrackerDelegate> delegate() const;
    void setDelegate(std::shared_ptr<BVGeoTrackerDelegate> delegate);

    BVGeoTracker(const BVGeoTracker&) = delete;
    BVGeoTracker& operator=(const BVGeoTracker&) = delete;
    ~BVGeoTracker();

private:
    BVGeoTracker();

    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace bvgeo
