// The C API's configuration: app id and mode, environment URLs, the tracking
// parameters and the extended options.

#include "capi/CApiCall.hpp"
#include "capi/Utf8.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <cstdint>
#include <cstdlib>
#include <limits>

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
    options.polygon_fences = extended.polygonFences ? 1 : 0;
    return options;
}

// Polygon fences: version 2 appended polygon_fences; a version-1 struct is the part
// before it, and nothing past that part is read or written.
constexpr unsigned kExtendedOptionsVersion1 = 1;
constexpr std::size_t kExtendedOptionsVersion1Size = offsetof(bvgeo_extended_options, polygon_fences);

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

void bvgeo_parameters_init(bvgeo_parameters* p) {
    if (!p) return;
    *p = bvgeo_parameters{};
    p->version = BVGEO_PARAMETERS_VERSION;
    p->accuracy = bvgeo::kLocationAccuracyHundredMeters;
    p->distance_filter = 50.0;
    p->cache_expiration = 3600;
    p->zone_interval = 0.2;
    p->linger_time = 300;
    p->max_linger_time = 7200;
    p->request_retry_interval = 120.0;
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
    const auto config = BVGeoTracker::sharedInstance().config();
    *p = bvgeo_parameters{};
    p->version = BVGEO_PARAMETERS_VERSION;
    p->accuracy = config.locationAccuracy;
    p->distance_filter = config.locationDistanceFilt;
    p->cache_expiration = config.cacheExpiration;
    p->zone_interval = config.zoneInterval;
    p->linger_time = config.lingerTime;
    p->max_linger_time = config.maxLingerTime;
    p->request_retry_interval = config.requestQueueRetryInterval;
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
    if (options->version != kExtendedOptionsVersion1)
        CHECK_VERSION("options", options->version, BVGEO_EXTENDED_OPTIONS_VERSION, bvgeo_extended_options_init);
    const bool version2 = options->version >= 2;
    if (version2 && options->polygon_fences != 0 && options->polygon_fences != 1)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "options->polygon_fences " + std::to_string(options->polygon_fences) + " is not 0 or 1");
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
    if (version2) extended.polygonFences = options->polygon_fences == 1;
    BVGeoTracker::sharedInstance().setExtendedOptions(extended);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_get_extended_options(bvgeo_tracker* tracker, bvgeo_extended_options* options) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(options);
    const bvgeo_extended_options current = cExtendedOptions(BVGeoTracker::sharedInstance().extendedOptions());
    if (options->version == kExtendedOptionsVersion1) {
        std::memcpy(options, &current, kExtendedOptionsVersion1Size);
        options->version = kExtendedOptionsVersion1;
    } else {
        *options = current;
    }
    return succeed();
    CAPI_END
}

} // extern "C"
