#include "HostSetup.hpp"

#include "capi/WritableDirectory.hpp"

#include <nlohmann/json.hpp>

#include <ctime>
#include <iostream>

namespace bvgeo::cli {

namespace {

int namedOrNumber(const std::string& text, std::initializer_list<const char*> names, const std::string& option) {
    int index = 0;
    for (const char* name : names) {
        if (text == name) return index;
        ++index;
    }
    if (text.size() == 1 && text[0] >= '0' && text[0] < '0' + static_cast<int>(names.size())) return text[0] - '0';
    std::string known;
    for (const char* name : names) known += std::string(known.empty() ? "" : ", ") + name;
    throw UsageError(option + ": '" + text + "' is not one of " + known + " or 0 to " +
                     std::to_string(names.size() - 1));
}

} // namespace

int parseEnvironment(const std::string& text) {
    return namedOrNumber(text, {"production", "staging", "qa", "development"}, "--env");
}

int parseTriggerMode(const std::string& text) { return namedOrNumber(text, {"both", "local", "remote"}, "--mode"); }

double parseAccuracy(const std::string& text) {
    if (text == "best") return kLocationAccuracyBest;
    if (text == "ten-meters") return kLocationAccuracyNearestTenMeters;
    if (text == "hundred-meters") return kLocationAccuracyHundredMeters;
    return parseNumber(text, "--accuracy");
}

double parseDistanceFilter(const std::string& text) {
    if (text == "none") return kDistanceFilterNone;
    return parseNumber(text, "--distance-filter");
}

std::optional<std::string> prepareDataDirectory(const std::string& directory) {
    return capi::prepareWritableDirectory(directory, "data directory");
}

std::string triggerJsonLine(const BVTrigger& trigger) {
    nlohmann::ordered_json line{{"event", trigger.getEvent()},
                                {"fenceId", trigger.fenceId},
                                {"fenceName", trigger.fenceName},
                                {"timestamp", trigger.timestamp},
                                {"locationEvent", std::string(rawValue(trigger.locationEvent))},
                                {"deviceId", trigger.deviceId}};
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string triggerTextLine(const BVTrigger& trigger) {
    const auto seconds = static_cast<std::time_t>(trigger.timestamp);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char time[32];
    std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%SZ", &parts);
    std::string event = trigger.getEvent();
    event.resize(7, ' ');
    return std::string(time) + "  " + event + trigger.fenceName + " (" + trigger.fenceId + ")";
}

std::optional<std::string> configureHost(const ReplayOptions& o, std::shared_ptr<BVGeoTrackerDelegate> delegate) {
    auto& tracker = BVGeoTracker::sharedInstance();
    const auto environment = *environmentFromRaw(o.environment);
    if (o.apiBase || o.assetsBase) {
        EnvironmentURLs urls = tracker.environmentURLs(environment);
        if (o.apiBase) urls.apiBase = *o.apiBase;
        if (o.assetsBase) urls.assetsBase = *o.assetsBase;
        tracker.setEnvironmentURLs(environment, urls);
    } else {
        // Said up front: otherwise a run shows nothing but an empty result.
        std::cerr << "bvgeo: no --api-base or --assets-base: the built-in placeholder hosts do not resolve, so no "
                     "zone file can be fetched and no trigger reported\n";
    }
    tracker.configure(o.appId, o.mode, o.environment);
    if (!tracker.isConfigured()) return "the library refused the application id '" + o.appId + "'";
    if (o.accuracy || o.distanceFilter || o.cacheExpiration || o.zoneInterval || o.lingerTime || o.maxLingerTime ||
        o.retryInterval) {
        const configOptions defaults;
        tracker.setParameters(o.accuracy.value_or(defaults.locationAccuracy),
                              o.distanceFilter.value_or(defaults.locationDistanceFilt),
                              o.cacheExpiration.value_or(defaults.cacheExpiration),
                              o.zoneInterval.value_or(defaults.zoneInterval), o.lingerTime.value_or(defaults.lingerTime),
                              o.maxLingerTime.value_or(defaults.maxLingerTime),
                              o.retryInterval.value_or(defaults.requestQueueRetryInterval));
    }
    if (o.durableDelivery || o.maxLogRows || o.maxLocationRows || o.fenceListingLimit) {
        ExtendedOptions extended = tracker.extendedOptions();
        extended.durableDelivery = o.durableDelivery;
        extended.maxLogRows = o.maxLogRows;
        extended.maxLocationRows = o.maxLocationRows;
        extended.fenceListingLimit = o.fenceListingLimit;
        tracker.setExtendedOptions(extended);
    }
    // Fences without a network: the cache (filled below, once every option is set).
    if (o.zoneCache || o.prefetchDistance > 0) {
        ExtendedOptions extended = tracker.extendedOptions();
        extended.zoneCache = o.zoneCache;
        extended.prefetchDistance = o.prefetchDistance;
        tracker.setExtendedOptions(extended);
    }
    // Robust triggers.
    if (o.triggerFilter.robustTriggers) {
        ExtendedOptions extended = tracker.extendedOptions();
        extended.triggerFilter = o.triggerFilter;
        tracker.setExtendedOptions(extended);
    }
    // Polygon fences.
    if (o.polygonFences) {
        ExtendedOptions extended = tracker.extendedOptions();
        extended.polygonFences = true;
        tracker.setExtendedOptions(extended);
    }
    // The cache is filled once every option that reads zone files is set.
    if (o.preload) {
        const auto preloaded = tracker.preloadZones(*o.preload);
        if (!preloaded.error.empty()) return "--preload: " + preloaded.error;
        std::cerr << "preloaded " << preloaded.loaded << " zone files from " << *o.preload << " ("
                  << preloaded.skipped << " skipped; the ZONE log says why)\n";
    }
    tracker.setTriggerDelegate(std::move(delegate));
    return std::nullopt;
}

std::optional<std::string> startHost(const ReplayOptions& options, std::shared_ptr<BVGeoTrackerDelegate> delegate) {
    if (auto problem = configureHost(options, std::move(delegate))) return problem;
    BVGeoTracker::sharedInstance().start();
    return std::nullopt;
}

} // namespace bvgeo::cli
