#include <bvgeo/BVGeoTracker.hpp>

#include "datastore/BV1Database.hpp"
#include "location/LocationTracker.hpp"
#include "location/LocationTrackerSignificantChanges.hpp"
#include "logger/Logger.hpp"
#include "models/FenceFetch.hpp"
#include "models/Trigger.hpp"
#include "platform/SharedInstance.hpp"
#include "request/RequestQueue.hpp"
#include "settings/TrackerSettings.hpp"
#include "tracker/Environments.hpp"
#include "tracker/Quiescence.hpp"
#include "tracker/UrlText.hpp"
#include "trigger/TriggerManager.hpp"
#include "zone/ZoneCache.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace bvgeo {

// What only the facade reads; the rest of what the host says goes to TrackerSettings.
struct BVGeoTracker::Impl {
    // Guards the fields below; held for a few instructions. Writers that also set
    // TrackerSettings do so under it, so two hosts' threads configuring at once
    // leave the facade and the settings telling the same story.
    mutable std::mutex mutex;
    BVEnvironment environment = BVEnvironment::PRODUCTION;
    std::string appId;
    std::shared_ptr<BVGeoTrackerDelegate> delegate;
    EnvironmentURLs urls[4];

    std::atomic<bool> isConfigured{false};
    bool placeholdersReported = false; // said once per process
    std::atomic<bool> announced{false}; // the init line is on the console
};

namespace {
constexpr std::string_view kConfigureFunction = "configure(_:triggerMode:environment:)";

bool isUnsafeArchiveName(const std::string& name) {
    return name == "." || name == ".." || name.find('/') != std::string::npos ||
           name.find('\0') != std::string::npos;
}

BVError makeError(int code, std::string description) {
    return BVError{std::string(kBVErrorDomain), code, std::move(description)};
}

// The built-in base URLs name hosts under ".example", which never resolve: a host
// that forgot to set its own learns it here once, not from a failure per fix.
void reportPlaceholderURLs(BVEnvironment environment) {
    const auto urls = defaultEnvironmentURLs(environment);
    const std::string text = "No base URLs were set for environment " + std::to_string(rawValue(environment)) +
                             ": zone files and trigger reports go to the built-in placeholder hosts (" +
                             urls.apiBase + ", " + urls.assetsBase +
                             "), which do not resolve. Set them with setEnvironmentURLs before configure.";
    Logger::log(text, LogCategory::ZONE, "configure(_:triggerMode:environment:)", 108);
    // In debug mode the logger's echo has put it on the console already.
    if (!Logger::debugMode()) platform().console->print(text);
}
} // namespace

BVGeoTracker& BVGeoTracker::sharedInstance() {
    static SharedInstance<BVGeoTracker> slot;
    auto& tracker = slot.get([] { return std::unique_ptr<BVGeoTracker>(new BVGeoTracker()); });
    // Said once the slot's lock is let go: a host's console may ask for the tracker.
    if (!tracker.impl_->announced.exchange(true)) platform().console->log("SDK LOG: BVGeoTracker.init()");
    return tracker;
}

BVGeoTracker::BVGeoTracker() : impl_(std::make_unique<Impl>()) {
    for (int raw = 0; raw < 4; ++raw) impl_->urls[raw] = defaultEnvironmentURLs(static_cast<BVEnvironment>(raw));
    Logger::setDebugMode(true);
}

BVGeoTracker::~BVGeoTracker() = default;

void BVGeoTracker::configure(const std::string& appId, int triggerMode, int environment) {
    auto env = environmentFromRaw(environment);
    auto mode = triggerModeFromRaw(triggerMode);
    if (!verifyParams(appId)) {
        setIsConfigured(false);
    } else if (!env || !mode) {
        std::string message = "Could not configure BVGeoTracker: ";
        message += !env ? "Invalid environment " + std::to_string(environment) + "!"
                        : "Invalid triggerMode " + std::to_string(triggerMode) + "!";
        Logger::log(message, LogCategory::GENERAL, kConfigureFunction, 105);
        setIsConfigured(false);
    } else {
        bool placeholders = false;
        bool debug = *env != BVEnvironment::PRODUCTION;
        auto& settings = TrackerSettings::sharedInstance();
        {
            std::lock_guard lock(impl_->mutex);
            const auto& urls = impl_->urls[rawValue(*env)];
            impl_->environment = *env;
            // The id as given is what is stored and logged; in a URL it is one
            // path segment, whatever it holds ("a b?c#d", "../../etc").
            const std::string segment = percentEncodePathSegment(appId);
            settings.setApiUrl(urls.apiBase + segment + "/");
            settings.setZonesBaseUrl(urls.assetsBase + segment + "/zones/");
            placeholders = urls == defaultEnvironmentURLs(*env) && !impl_->placeholdersReported;
            if (placeholders) impl_->placeholdersReported = true;
        }
        setIsDebug(debug);
        if (placeholders) reportPlaceholderURLs(*env);
        if (debug) platform().device->setBatteryMonitoringEnabled(true);
        {
            std::lock_guard lock(impl_->mutex);
            impl_->appId = appId;
            settings.setTriggerMode(*mode);
        }
        setIsConfigured(true);
    }
    Logger::log("BV Configure app:" + appId + "; triggerMode: " + std::to_string(triggerMode) +
                    "; environment:" + std::to_string(environment) +
                    "; isConfigured: " + (isConfigured() ? "true" : "false"),
                LogCategory::GENERAL, kConfigureFunction, 107);
}

void BVGeoTracker::setParameters(double accuracy, double distanceFilter, std::int64_t cacheExpiration,
                                 double zoneInterval, std::int64_t lingerTime, std::int64_t maxLingerTime,
                                 double requestRetryInterval) {
    auto& settings = TrackerSettings::sharedInstance();
    // Under the facade's lock: two calls at once must not each keep half of the other.
    std::lock_guard lock(impl_->mutex);
    configOptions config = settings.config();
    config.locationAccuracy = accuracy;
    config.locationDistanceFilt = distanceFilter;
    config.cacheExpiration = cacheExpiration;
    config.zoneInterval = zoneInterval;
    config.lingerTime = lingerTime;
    config.maxLingerTime = maxLingerTime;
    config.requestQueueRetryInterval = requestRetryInterval;
    settings.setConfig(config);
}

void BVGeoTracker::start() {
    if (!isConfigured()) {
        Logger::log("BVGeoTracker is not configured! Please configure before calling start()", LogCategory::GENERAL,
                    "start()", 127);
        return;
    }
    Logger::log("Started tracking location", LogCategory::GENERAL, "start()", 123);
    LocationTracker::sharedInstance().start();
    LocationTrackerSignificantChanges::sharedInstance().start();
    // Reports an earlier process still owed the server go out now, not only when the
    // next trigger happens.
    if (extendedOptions().durableDelivery) RequestQueue::sharedInstance().restoreOutbox();
}

void BVGeoTracker::stop() {
    Logger::log("Stopped tracking location", LogCategory::GENERAL, "stop()", 132);
    LocationTracker::sharedInstance().stop();
    LocationTrackerSignificantChanges::sharedInstance().stop();
}

void BVGeoTracker::setTriggerDelegate(std::shared_ptr<BVGeoTrackerDelegate> delegate) {
    setDelegate(std::move(delegate));
}

bool BVGeoTracker::verifyParams(const std::optional<std::string>& appId) {
    if (!appId || appId->empty()) {
        Logger::log("Could not configure BVGeoTracker: Missing parameter appId!", LogCategory::GENERAL,
                    "verifyParams", 143);
        return false;
    }
    return true;
}

std::string BVGeoTracker::getDeviceId() { return TrackerSettings::sharedInstance().deviceId(); }

std::string BVGeoTracker::getAppId() const { return appId(); }

void BVGeoTracker::log(const std::string& message) { Logger::log(message, LogCategory::CLIENT, "log", 161); }

void BVGeoTracker::reset(const std::string& name, const std::function<void()>& success,
                         const std::function<void(const BVError& error)>& failure) {
    auto fail = [&](BVError error) {
        if (failure) failure(error);
    };
    if (name.empty()) return fail(makeError(BVErrorCodes::kErrorResetDatabaseNameMandatory, "The archive name is empty."));
    if (isUnsafeArchiveName(name))
        return fail(makeError(BVErrorCodes::kErrorResetDatabaseNameInvalid,
                              "The archive name must be a plain file name (no '/', no NUL, not '.' or '..')."));
    BV1Database database;
    if (database.checkIfNewFileExists(name))
        return fail(makeError(BVErrorCodes::kErrorResetDatabaseAlreadyExists,
                              "An archive named " + name + ".sqlite already exists."));
    stop();
    database.moveAndRenameDatabase(name);
    FenceFetch::reset();
    if (success) success();
}

void BVGeoTracker::setExtendedOptions(const ExtendedOptions& options) {
    TrackerSettings::sharedInstance().setExtendedOptions(options);
    // Storage sits above the settings and cannot read them: the limits go down to it.
    BV1Database::setRowLimit("log", options.maxLogRows);
    BV1Database::setRowLimit("locations", options.maxLocationRows);
}

ExtendedOptions BVGeoTracker::extendedOptions() const { return TrackerSettings::sharedInstance().extendedOptions(); }

ZonePreload BVGeoTracker::preloadZones(const std::string& directory) {
    ZonePreload result;
    if (!isConfigured()) {
        result.error = "BVGeoTracker is not configured: the app id names the zone files";
    } else {
        auto preloaded = ZoneCache::sharedInstance().preload(directory, appId(), config().zoneInterval);
        result = {preloaded.loaded, preloaded.skipped, std::move(preloaded.error)};
    }
    if (!result.error.empty())
        Logger::log("Zone cache: no preload from " + directory + ": " + result.error, LogCategory::ZONE,
                    "preloadZones(_:)", __LINE__);
    return result;
}

std::vector<std::shared_ptr<BVTrigger>> BVGeoTracker::listTriggers() { return Trigger::list(); }

namespace {

// Posts `post(done)` and waits until `done` ran or the time is up.
bool barrier(const std::function<void(std::function<void()>)>& post, double timeoutSeconds) {
    struct State {
        std::mutex mutex;
        std::condition_variable ran;
        bool done = false;
    };
    auto state = std::make_shared<State>();
    post([state] {
        std::lock_guard lock(state->mutex);
        state->done = true;
        state->ran.notify_all();
    });
    std::unique_lock lock(state->mutex);
    return state->ran.wait_for(lock, std::chrono::duration<double>(timeoutSeconds), [&] { return state->done; });
}

// The installed queues, waited for in the order work flows: trigger jobs post to
// the main queue.
bool drainInstalledQueues(double timeoutSeconds) {
    const auto start = std::chrono::steady_clock::now();
    if (!barrier([](std::function<void()> done) { TriggerManager::sharedInstance().whenIdle(std::move(done)); },
                 timeoutSeconds))
        return false;
    const double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return barrier([](std::function<void()> done) { platform().mainQueue->async(std::move(done)); },
                   std::max(0.0, timeoutSeconds - spent));
}

} // namespace

bool BVGeoTracker::settle(double timeoutSeconds) {
    if (platform().mainQueue->isCurrent()) return false;
    return settleLibrary(timeoutSeconds, drainInstalledQueues);
}

FlushResult BVGeoTracker::flush(double timeoutSeconds) {
    if (platform().mainQueue->isCurrent()) {
        FlushResult unsettled;
        auto& queue = RequestQueue::sharedInstance();
        unsettled.reportsOwed = queue.requests().size() + queue.retryRequests().size();
        return unsettled;
    }
    return flushLibrary(timeoutSeconds, drainInstalledQueues);
}

void BVGeoTracker::setEnvironmentURLs(BVEnvironment environment, EnvironmentURLs urls) {
    std::lock_guard lock(impl_->mutex);
    impl_->urls[rawValue(environment)] = std::move(urls);
}

EnvironmentURLs BVGeoTracker::environmentURLs(BVEnvironment environment) const {
    std::lock_guard lock(impl_->mutex);
    return impl_->urls[rawValue(environment)];
}

std::string BVGeoTracker::apiUrl() const { return TrackerSettings::sharedInstance().apiUrl(); }
void BVGeoTracker::setApiUrl(std::string url) { TrackerSettings::sharedInstance().setApiUrl(std::move(url)); }

std::string BVGeoTracker::zonesBaseUrl() const { return TrackerSettings::sharedInstance().zonesBaseUrl(); }
void BVGeoTracker::setZonesBaseUrl(std::string url) {
    TrackerSettings::sharedInstance().setZonesBaseUrl(std::move(url));
}

bool BVGeoTracker::isDebug() const { return TrackerSettings::sharedInstance().isDebug(); }
void BVGeoTracker::setIsDebug(bool debug) { TrackerSettings::sharedInstance().setIsDebug(debug); }

BVEnvironment BVGeoTracker::environment() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->environment;
}

configOptions BVGeoTracker::config() const { return TrackerSettings::sharedInstance().config(); }

std::string BVGeoTracker::appId() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->appId;
}

void BVGeoTracker::setAppId(std::string appId) {
    std::lock_guard lock(impl_->mutex);
    impl_->appId = std::move(appId);
}

bool BVGeoTracker::isConfigured() const { return impl_->isConfigured.load(std::memory_order_acquire); }
void BVGeoTracker::setIsConfigured(bool configured) {
    impl_->isConfigured.store(configured, std::memory_order_release);
}

TriggerMode BVGeoTracker::triggerMode() const { return TrackerSettings::sharedInstance().triggerMode(); }

std::shared_ptr<BVGeoTrackerDelegate> BVGeoTracker::delegate() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->delegate;
}

void BVGeoTracker::setDelegate(std::shared_ptr<BVGeoTrackerDelegate> delegate) {
    TrackerSettings::TriggerDelegate deliver;
    // The tracker is looked up at each call rather than captured: a trigger posted
    // before a reset of the shared instances may run after it.
    if (delegate)
        deliver = [delegate](std::shared_ptr<BVTrigger> trigger) {
            delegate->BVGeoTrackerOnFenceTriggered(BVGeoTracker::sharedInstance(), std::move(trigger));
        };
    std::shared_ptr<BVGeoTrackerDelegate> old;
    {
        std::lock_guard lock(impl_->mutex);
        TrackerSettings::sharedInstance().setDelegate(std::move(deliver));
        old = std::exchange(impl_->delegate, std::move(delegate));
    }
}

} // namespace bvgeo
