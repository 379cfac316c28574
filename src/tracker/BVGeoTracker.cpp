#include <bvgeo/BVGeoTracker.hpp>

#include "datastore/BV1Database.hpp"
#include "location/LocationTracker.hpp"
#include "location/LocationTrackerSignificantChanges.hpp"
#include "logger/Logger.hpp"
#include "models/FenceFetch.hpp"
#include "models/Trigger.hpp"
#include "platform/SharedInstance.hpp"
#include "request/RequestQueue.hpp"
#include "tracker/Environments.hpp"

#include <bvgeo/platform/Platform.hpp>

namespace bvgeo {

namespace {
constexpr std::string_view kConfigureFunction = "configure(_:triggerMode:environment:)";

std::mutex& deviceIdMutex() {
    static std::mutex mutex;
    return mutex;
}

bool isUnsafeArchiveName(const std::string& name) {
    return name == "." || name == ".." || name.find('/') != std::string::npos ||
           name.find('\0') != std::string::npos;
}

BVError makeError(int code, std::string description) {
    return BVError{std::string(kBVErrorDomain), code, std::move(description)};
}
} // namespace

BVGeoTracker& BVGeoTracker::sharedInstance() {
    static SharedInstance<BVGeoTracker> slot;
    return slot.get([] { return std::unique_ptr<BVGeoTracker>(new BVGeoTracker()); });
}

BVGeoTracker::BVGeoTracker() {
    for (int raw = 0; raw < 4; ++raw) urls_[raw] = defaultEnvironmentURLs(static_cast<BVEnvironment>(raw));
    Logger::setDebugMode(true);
    platform().console->log("SDK LOG: BVGeoTracker.init()");
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
        bool debug = *env != BVEnvironment::PRODUCTION;
        {
            std::lock_guard lock(mutex_);
            const auto& urls = urls_[rawValue(*env)];
            environment_ = *env;
            apiUrl_ = urls.apiBase + appId + "/";
            zonesBaseUrl_ = urls.assetsBase + appId + "/zones/";
        }
        setIsDebug(debug);
        if (debug) platform().device->setBatteryMonitoringEnabled(true);
        {
            std::lock_guard lock(mutex_);
            appId_ = appId;
            triggerMode_ = *mode;
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
    std::lock_guard lock(mutex_);
    config_.locationAccuracy = accuracy;
    config_.locationDistanceFilt = distanceFilter;
    config_.cacheExpiration = cacheExpiration;
    config_.zoneInterval = zoneInterval;
    config_.lingerTime = lingerTime;
    config_.maxLingerTime = maxLingerTime;
    config_.requestQueueRetryInterval = requestRetryInterval;
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

std::string BVGeoTracker::getDeviceId() {
    // Two first callers at once must not each store a different identifier.
    std::lock_guard lock(deviceIdMutex());
    if (FenceFetch::deviceId().empty()) FenceFetch::setDeviceId(platform().uuids->newUuid());
    return FenceFetch::deviceId();
}

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
    {
        std::lock_guard lock(mutex_);
        extendedOptions_ = options;
    }
    // The storage layer cannot read the facade: the limits go down to it.
    BV1Database::setRowLimit("log", options.maxLogRows);
    BV1Database::setRowLimit("locations", options.maxLocationRows);
}

ExtendedOptions BVGeoTracker::extendedOptions() const {
    std::lock_guard lock(mutex_);
    return extendedOptions_;
}

std::vector<std::shared_ptr<BVTrigger>> BVGeoTracker::listTriggers() { return Trigger::list(); }

void BVGeoTracker::setEnvironmentURLs(BVEnvironment environment, EnvironmentURLs urls) {
    std::lock_guard lock(mutex_);
    urls_[rawValue(environment)] = std::move(urls);
}

EnvironmentURLs BVGeoTracker::environmentURLs(BVEnvironment environment) const {
    std::lock_guard lock(mutex_);
    return urls_[rawValue(environment)];
}

std::string BVGeoTracker::apiUrl() const {
    std::lock_guard lock(mutex_);
    return apiUrl_;
}

void BVGeoTracker::setApiUrl(std::string url) {
    std::lock_guard lock(mutex_);
    apiUrl_ = std::move(url);
}

std::string BVGeoTracker::zonesBaseUrl() const {
    std::lock_guard lock(mutex_);
    return zonesBaseUrl_;
}

void BVGeoTracker::setZonesBaseUrl(std::string url) {
    std::lock_guard lock(mutex_);
    zonesBaseUrl_ = std::move(url);
}

bool BVGeoTracker::isDebug() const { return Logger::debugMode(); }
void BVGeoTracker::setIsDebug(bool debug) { Logger::setDebugMode(debug); }

BVEnvironment BVGeoTracker::environment() const {
    std::lock_guard lock(mutex_);
    return environment_;
}

configOptions BVGeoTracker::config() const {
    std::lock_guard lock(mutex_);
    return config_;
}

std::string BVGeoTracker::appId() const {
    std::lock_guard lock(mutex_);
    return appId_;
}

void BVGeoTracker::setAppId(std::string appId) {
    std::lock_guard lock(mutex_);
    appId_ = std::move(appId);
}

TriggerMode BVGeoTracker::triggerMode() const {
    std::lock_guard lock(mutex_);
    return triggerMode_;
}

std::shared_ptr<BVGeoTrackerDelegate> BVGeoTracker::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_;
}

void BVGeoTracker::setDelegate(std::shared_ptr<BVGeoTrackerDelegate> delegate) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

} // namespace bvgeo
