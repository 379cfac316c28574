// The C API's configuration: app id and mode, environment URLs, the tracking
// parameters and the extended options.

#include "capi/CApiCall.hpp"
#include "capi/Utf8.hpp"
#include "tracker/UrlText.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

namespace {

using bvgeo::BVGeoTracker;
using namespace bvgeo::capi;

bool isEnvironment(int value) { return bvgeo::environmentFromRaw(value).has_value(); }

// The C view of extended options, as init and get hand it out.
bvgeo_extended_options cExtendedOptions(const bvgeo::ExtendedOptions& extended) {
    bvgeo_extended_options options{};
    options.version = BVGEO_EXTENDED_OPTIONS_VERSION;
    options.durable_delivery = extended.durableDelivery ? 1 : 0;
    options.outbox_max_reports = extended.outboxMaxReports;
    options.outbox_max_age_seconds = extended.outboxMaxAgeSeconds;
    options.max_log_rows = extended.maxLogRows;
    options.max_location_rows = extended.maxLocationRows;
    options.fence_listing_limit = extended.fenceListingLimit;
    // Zone cache (version 2).
    options.zone_cache = extended.zoneCache;
    options.prefetch_distance = extended.prefetchDistance;
    // Robust triggers.
    const bvgeo::TriggerFilterOptions& filter = extended.triggerFilter;
    options.robust_triggers = filter.robustTriggers ? 1 : 0;
    options.exit_buffer_metres = filter.exitBufferMetres;
    options.accuracy_cap_metres = filter.accuracyCapMetres;
    options.max_accuracy_metres = filter.maxAccuracyMetres;
    options.assumed_accuracy_metres = filter.assumedAccuracyMetres;
    options.hdop_metres = filter.hdopMetres;
    options.max_speed = filter.maxSpeed;
    options.confirm_fixes = filter.confirmFixes;
    options.confirm_seconds = filter.confirmSeconds;
    options.minimum_dwell_seconds = filter.minimumDwellSeconds;
    options.use_two_dimensional_fixes = filter.useTwoDimensionalFixes ? 1 : 0;
    // Polygon fences.
    options.polygon_fences = extended.polygonFences ? 1 : 0;
    return options;
}

// A version-1 struct ends where the first field of version 2 begins.
constexpr std::size_t kVersion1Size = offsetof(bvgeo_extended_options, zone_cache);

// The robust-trigger fields of a version-2 struct, checked; a problem text when one is out of range.
std::optional<std::string> readTriggerFilter(const bvgeo_extended_options& o, bvgeo::TriggerFilterOptions& filter) {
    const auto flag = [](const char* name, int value) -> std::optional<std::string> {
        if (value == 0 || value == 1) return std::nullopt;
        return std::string("options->") + name + " " + std::to_string(value) + " is not 0 or 1";
    };
    const auto metres = [](const char* name, double value, bool zeroAllowed) -> std::optional<std::string> {
        if (std::isfinite(value) && (value > 0 || (zeroAllowed && value == 0))) return std::nullopt;
        return outOfRange("options", name, number(value), zeroAllowed ? ">= 0" : "> 0");
    };
    const auto count = [](const char* name, std::int64_t value, std::int64_t least,
                          std::int64_t most) -> std::optional<std::string> {
        if (value >= least && value <= most) return std::nullopt;
        const std::string rule = std::to_string(least) + ".." + std::to_string(most);
        return outOfRange("options", name, std::to_string(value), rule.c_str());
    };
    for (auto problem : {flag("robust_triggers", o.robust_triggers),
                         metres("exit_buffer_metres", o.exit_buffer_metres, true),
                         metres("accuracy_cap_metres", o.accuracy_cap_metres, true),
                         metres("max_accuracy_metres", o.max_accuracy_metres, false),
                         metres("assumed_accuracy_metres", o.assumed_accuracy_metres, true),
                         metres("hdop_metres", o.hdop_metres, false), metres("max_speed", o.max_speed, false),
                         count("confirm_fixes", o.confirm_fixes, 1, 1000),
                         count("confirm_seconds", o.confirm_seconds, 0, 86400),
                         count("minimum_dwell_seconds", o.minimum_dwell_seconds, 0, 86400),
                         flag("use_two_dimensional_fixes", o.use_two_dimensional_fixes)})
        if (problem) return problem;
    filter.robustTriggers = o.robust_triggers == 1;
    filter.exitBufferMetres = o.exit_buffer_metres;
    filter.accuracyCapMetres = o.accuracy_cap_metres;
    filter.maxAccuracyMetres = o.max_accuracy_metres;
    filter.assumedAccuracyMetres = o.assumed_accuracy_metres;
    filter.hdopMetres = o.hdop_metres;
    filter.maxSpeed = o.max_speed;
    filter.confirmFixes = o.confirm_fixes;
    filter.confirmSeconds = o.confirm_seconds;
    filter.minimumDwellSeconds = o.minimum_dwell_seconds;
    filter.useTwoDimensionalFixes = o.use_two_dimensional_fixes == 1;
    return std::nullopt;
}

} // namespace

extern "C" {

bvgeo_status bvgeo_configure(bvgeo_tracker* tracker, const char* app_id, int trigger_mode, int environment) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_TEXT(app_id);
    auto& facade = BVGeoTracker::sharedInstance();
    facade.configure(app_id, trigger_mode, environment);
    if (facade.isConfigured()) return succeed();
    std::string why = !*app_id                                  ? "app_id is empty"
                      : !bvgeo::triggerModeFromRaw(trigger_mode) ? "trigger_mode " + std::to_string(trigger_mode) +
                                                                       " is not a BVGEO_TRIGGER_MODE_* value"
                                                                 : "environment " + std::to_string(environment) +
                                                                       " is not a BVGEO_ENVIRONMENT_* value";
    return failLogged(__func__, BVGEO_ERR_INVALID_ARGUMENT, "configuration refused: " + why);
    CAPI_END
}

bvgeo_status bvgeo_set_environment_urls(bvgeo_tracker* tracker, int environment, const char* api_base,
                                        const char* assets_base) {
    CAPI_BEGIN
    SESSION(tracker);
    if (!isEnvironment(environment))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "environment " + std::to_string(environment) + " is not a BVGEO_ENVIRONMENT_* value");
    if (api_base && !bvgeo::capi::isValidUtf8(api_base))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "api_base is not valid UTF-8");
    if (assets_base && !bvgeo::capi::isValidUtf8(assets_base))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "assets_base is not valid UTF-8");
    for (auto [name, url] : {std::pair{"api_base", api_base}, std::pair{"assets_base", assets_base}})
        if (url)
            if (auto problem = bvgeo::baseUrlProblem(url))
                return FAIL(BVGEO_ERR_INVALID_ARGUMENT, std::string(name) + " \"" + url + "\" " + *problem);
    auto& facade = BVGeoTracker::sharedInstance();
    const auto env = static_cast<bvgeo::BVEnvironment>(environment);
    bvgeo::EnvironmentURLs urls = facade.environmentURLs(env);
    if (api_base) urls.apiBase = api_base;
    if (assets_base) urls.assetsBase = assets_base;
    facade.setEnvironmentURLs(env, std::move(urls));
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_get_environment_urls(bvgeo_tracker* tracker, int environment, char** api_base,
                                        char** assets_base) {
    CAPI_BEGIN
    SESSION(tracker);
    if (!isEnvironment(environment))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "environment " + std::to_string(environment) + " is not a BVGEO_ENVIRONMENT_* value");
    const auto urls = BVGeoTracker::sharedInstance().environmentURLs(static_cast<bvgeo::BVEnvironment>(environment));
    char* api = api_base ? duplicate(urls.apiBase) : nullptr;
    char* assets = assets_base ? duplicate(urls.assetsBase) : nullptr;
    if ((api_base && !api) || (assets_base && !assets)) {
        std::free(api);
        std::free(assets);
        return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
    }
    if (api_base) *api_base = api;
    if (assets_base) *assets_base = assets;
    return succeed();
    CAPI_END
}

namespace {

void fillParameters(bvgeo_parameters& p, const bvgeo::configOptions& config) {
    p = bvgeo_parameters{};
    p.version = BVGEO_PARAMETERS_VERSION;
    p.accuracy = config.locationAccuracy;
    p.distance_filter = config.locationDistanceFilt;
    p.cache_expiration = config.cacheExpiration;
    p.zone_interval = config.zoneInterval;
    p.linger_time = config.lingerTime;
    p.max_linger_time = config.maxLingerTime;
    p.request_retry_interval = config.requestQueueRetryInterval;
}

} // namespace

void bvgeo_parameters_init(bvgeo_parameters* p) {
    if (!p) return;
    // The starting configuration, so that a host setting one field changes only
    // that one (setParameters' own argument defaults differ: 100 m, 50 m, 120 s).
    fillParameters(*p, bvgeo::configOptions{});
}

bvgeo_status bvgeo_set_parameters(bvgeo_tracker* tracker, const bvgeo_parameters* p) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(p);
    CHECK_VERSION("parameters", p->version, BVGEO_PARAMETERS_VERSION, bvgeo_parameters_init);
    auto bad = [&](const char* field, const std::string& value, const char* rule) {
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, outOfRange("parameters", field, value, rule));
    };
    if (!std::isfinite(p->accuracy) || (p->accuracy < 0 && p->accuracy != BVGEO_ACCURACY_BEST))
        return bad("accuracy", number(p->accuracy), "metres >= 0, or BVGEO_ACCURACY_BEST");
    if (!std::isfinite(p->distance_filter) || (p->distance_filter < 0 && p->distance_filter != BVGEO_DISTANCE_FILTER_NONE))
        return bad("distance_filter", number(p->distance_filter), "metres >= 0, or BVGEO_DISTANCE_FILTER_NONE");
    if (p->cache_expiration < 0) return bad("cache_expiration", std::to_string(p->cache_expiration), "seconds >= 0");
    if (!std::isfinite(p->zone_interval) || p->zone_interval <= 0 || p->zone_interval > 180)
        return bad("zone_interval", number(p->zone_interval), "degrees, > 0 and <= 180");
    if (p->linger_time < 0) return bad("linger_time", std::to_string(p->linger_time), "seconds >= 0");
    if (p->max_linger_time < 0) return bad("max_linger_time", std::to_string(p->max_linger_time), "seconds >= 0");
    if (!std::isfinite(p->request_retry_interval) || p->request_retry_interval <= 0)
        return bad("request_retry_interval", number(p->request_retry_interval), "seconds > 0");
    BVGeoTracker::sharedInstance().setParameters(p->accuracy, p->distance_filter, p->cache_expiration,
                                                 p->zone_interval, p->linger_time, p->max_linger_time,
                                                 p->request_retry_interval);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_get_parameters(bvgeo_tracker* tracker, bvgeo_parameters* p) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(p);
    fillParameters(*p, BVGeoTracker::sharedInstance().config());
    return succeed();
    CAPI_END
}

void bvgeo_extended_options_init(bvgeo_extended_options* options) {
    if (!options) return;
    *options = cExtendedOptions(bvgeo::ExtendedOptions{});
}

bvgeo_status bvgeo_set_extended_options(bvgeo_tracker* tracker, const bvgeo_extended_options* options) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(options);
    if (options->version != 1) // a version-1 struct is read up to its end
        CHECK_VERSION("options", options->version, BVGEO_EXTENDED_OPTIONS_VERSION, bvgeo_extended_options_init);
    if (options->durable_delivery != 0 && options->durable_delivery != 1)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "options->durable_delivery " + std::to_string(options->durable_delivery) + " is not 0 or 1");
    if (options->outbox_max_age_seconds < 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, outOfRange("options", "outbox_max_age_seconds",
                                                           std::to_string(options->outbox_max_age_seconds),
                                                           "seconds >= 0"));
    constexpr auto kMaxSize = static_cast<std::uint64_t>(std::numeric_limits<std::size_t>::max());
    for (auto [name, value] : {std::pair{"outbox_max_reports", options->outbox_max_reports},
                               std::pair{"max_log_rows", options->max_log_rows},
                               std::pair{"max_location_rows", options->max_location_rows},
                               std::pair{"fence_listing_limit", options->fence_listing_limit}})
        if (value > kMaxSize)
            return FAIL(BVGEO_ERR_INVALID_ARGUMENT, std::string("options->") + name + " is too large for this platform");
    bvgeo::ExtendedOptions extended;
    extended.durableDelivery = options->durable_delivery == 1;
    extended.outboxMaxReports = static_cast<std::size_t>(options->outbox_max_reports);
    extended.outboxMaxAgeSeconds = options->outbox_max_age_seconds;
    extended.maxLogRows = static_cast<std::size_t>(options->max_log_rows);
    extended.maxLocationRows = static_cast<std::size_t>(options->max_location_rows);
    extended.fenceListingLimit = static_cast<std::size_t>(options->fence_listing_limit);
    // Version 2: zone cache.
    if (options->version >= 2) {
        if (options->zone_cache > kMaxSize)
            return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->zone_cache is too large for this platform");
        if (!std::isfinite(options->prefetch_distance) || options->prefetch_distance < 0)
            return FAIL(BVGEO_ERR_INVALID_ARGUMENT, outOfRange("options", "prefetch_distance",
                                                               number(options->prefetch_distance), "metres >= 0"));
        extended.zoneCache = static_cast<std::size_t>(options->zone_cache);
        extended.prefetchDistance = options->prefetch_distance;
        // Robust triggers.
        if (auto problem = readTriggerFilter(*options, extended.triggerFilter))
            return FAIL(BVGEO_ERR_INVALID_ARGUMENT, *problem);
        // Polygon fences.
        if (options->polygon_fences != 0 && options->polygon_fences != 1)
            return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                        "options->polygon_fences " + std::to_string(options->polygon_fences) + " is not 0 or 1");
        extended.polygonFences = options->polygon_fences == 1;
    }
    BVGeoTracker::sharedInstance().setExtendedOptions(extended);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_preload_zones(bvgeo_tracker* tracker, const char* directory, size_t* loaded, size_t* skipped) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_TEXT(directory);
    auto& facade = BVGeoTracker::sharedInstance();
    if (!facade.isConfigured())
        return failLogged(__func__, BVGEO_ERR_NOT_CONFIGURED, "preload needs a configured tracker (the app id)");
    if (facade.extendedOptions().zoneCache == 0)
        return failLogged(__func__, BVGEO_ERR_STATE, "preload needs the zone cache (zone_cache > 0)");
    const auto result = facade.preloadZones(directory);
    if (loaded) *loaded = result.loaded;
    if (skipped) *skipped = result.skipped;
    if (!result.error.empty()) return FAIL(BVGEO_ERR_IO, result.error);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_get_extended_options(bvgeo_tracker* tracker, bvgeo_extended_options* options) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(options);
    const auto current = cExtendedOptions(BVGeoTracker::sharedInstance().extendedOptions());
    if (options->version == BVGEO_EXTENDED_OPTIONS_VERSION) {
        *options = current;
    } else {
        // A caller built against version 1 has room for its fields only.
        std::memcpy(static_cast<void*>(options), &current, kVersion1Size);
        options->version = 1;
    }
    return succeed();
    CAPI_END
}

} // extern "C"
