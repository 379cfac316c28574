// The C API (include/bvgeo/bvgeo.h): each function checks what it was given,
// translates it for the C++ facade and the session, and turns every failure into a
// status, a log line and the thread's last-error text. No exception leaves here.

#include <bvgeo/bvgeo.h>

#include "capi/Session.hpp"
#include "capi/TriggerCallback.hpp"
#include "capi/Utf8.hpp"
#include "datastore/BV1Database.hpp"
#include "logger/Logger.hpp"
#include "platform/SharedInstance.hpp"
#include "request/RequestQueue.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <new>
#include <string>

struct bvgeo_tracker {
    std::unique_ptr<bvgeo::capi::Session> session;
};

namespace {

using bvgeo::BVGeoTracker;
using bvgeo::capi::MainQueueMode;
using bvgeo::capi::Session;

// The open tracker, read by every call; open and close take the lifecycle lock.
std::atomic<bvgeo_tracker*> openTracker{nullptr};
std::mutex lifecycleMutex;

thread_local std::string lastError;

bvgeo_status succeed() {
    lastError.clear();
    return BVGEO_OK;
}

// Records the failure for bvgeo_last_error and logs it: into the library's log while
// a tracker is open (which echoes to the console in debug mode), else on stderr.
bvgeo_status fail(const char* function, int line, bvgeo_status status, const std::string& message) {
    lastError = std::string(function) + ": " + message;
    if (openTracker.load(std::memory_order_acquire)) {
        try {
            bvgeo::Logger::log(message, bvgeo::LogCategory::GENERAL, function, line);
            return status;
        } catch (...) {
            // fall through to stderr
        }
    }
    std::fprintf(stderr, "bvgeo: %s\n", lastError.c_str());
    return status;
}

// A failure the facade has already logged in its own words.
bvgeo_status failLogged(const char* function, bvgeo_status status, const std::string& message) {
    lastError = std::string(function) + ": " + message;
    return status;
}

#define FAIL(status, message) fail(__func__, __LINE__, (status), (message))

// Every exported function body sits between these two.
#define CAPI_BEGIN try {
#define CAPI_END                                                                                                      \
    }                                                                                                                 \
    catch (const std::bad_alloc&) {                                                                                   \
        return FAIL(BVGEO_ERR_INTERNAL, "out of memory");                                                             \
    }                                                                                                                 \
    catch (const std::exception& error) {                                                                             \
        return FAIL(BVGEO_ERR_INTERNAL, std::string("unexpected failure: ") + error.what());                          \
    }                                                                                                                 \
    catch (...) {                                                                                                     \
        return FAIL(BVGEO_ERR_INTERNAL, "unexpected failure");                                                        \
    }

// Why `value` is not usable text, or nullptr when it is.
const char* textProblem(const char* value) {
    if (!value) return "is NULL";
    if (!bvgeo::capi::isValidUtf8(value)) return "is not valid UTF-8";
    return nullptr;
}

#define CHECK_TEXT(value)                                                                                             \
    do {                                                                                                              \
        if (const char* problem = textProblem(value)) return FAIL(BVGEO_ERR_INVALID_ARGUMENT, std::string(#value " ") + problem); \
    } while (0)

#define CHECK_NOT_NULL(pointer)                                                                                       \
    do {                                                                                                              \
        if (!(pointer)) return FAIL(BVGEO_ERR_INVALID_ARGUMENT, #pointer " is NULL");                                \
    } while (0)

// The session behind an open handle, or nullptr.
Session* sessionOf(bvgeo_tracker* tracker) {
    if (!tracker || tracker != openTracker.load(std::memory_order_acquire)) return nullptr;
    return tracker->session.get();
}

#define SESSION(tracker)                                                                                              \
    Session* session = sessionOf(tracker);                                                                            \
    if (!session)                                                                                                     \
        return FAIL((tracker) ? BVGEO_ERR_STATE : BVGEO_ERR_INVALID_ARGUMENT,                                         \
                    (tracker) ? "the tracker is not open (closed, or never opened)" : "tracker is NULL");             \
    (void)session

#define NOT_FROM_CALLBACK()                                                                                           \
    do {                                                                                                              \
        if (bvgeo::capi::TriggerCallback::runningOnThisThread())                                                      \
            return FAIL(BVGEO_ERR_STATE, "not allowed from inside a trigger callback");                               \
    } while (0)

#define VIRTUAL_ONLY(session)                                                                                         \
    do {                                                                                                              \
        if ((session)->mode() != MainQueueMode::VirtualTime)                                                          \
            return FAIL(BVGEO_ERR_STATE, "only in virtual-time mode (BVGEO_MAIN_QUEUE_VIRTUAL_TIME)");                \
        NOT_FROM_CALLBACK();                                                                                          \
    } while (0)

// Text for the caller, freed with bvgeo_free; nullptr when memory ran out.
char* duplicate(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

bool isEnvironment(int value) { return bvgeo::environmentFromRaw(value).has_value(); }

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// Empty when the directory can hold the database, else why not.
std::string prepareDirectory(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) return "cannot create the documents directory " + directory + ": " + error.message();
    if (!std::filesystem::is_directory(directory)) return "the documents directory " + directory + " is not a directory";
    const auto probe = std::filesystem::path(directory) / ".bvgeo-write-test";
    {
        std::ofstream file(probe);
        if (!file || !(file << "ok") || !file.flush()) return "cannot write to the documents directory " + directory;
    }
    std::filesystem::remove(probe, error);
    return {};
}

} // namespace

extern "C" {

const char* bvgeo_version(void) { return BVGEO_VERSION; }

const char* bvgeo_status_text(int status) {
    switch (status) {
    case BVGEO_OK: return "ok";
    case BVGEO_ERR_INVALID_ARGUMENT: return "invalid argument";
    case BVGEO_ERR_STATE: return "wrong state";
    case BVGEO_ERR_NOT_CONFIGURED: return "not configured";
    case BVGEO_ERR_TIMEOUT: return "timed out";
    case BVGEO_ERR_IO: return "input/output error";
    case BVGEO_ERR_INTERNAL: return "internal error";
    case BVGEO_ERR_RESET_ARCHIVE_EXISTS: return "reset: the archive already exists";
    case BVGEO_ERR_RESET_NAME_MANDATORY: return "reset: the archive name is empty";
    case BVGEO_ERR_RESET_NAME_INVALID: return "reset: the archive name is not a plain file name";
    default: return "unknown status";
    }
}

const char* bvgeo_last_error(void) { return lastError.c_str(); }

void bvgeo_free(void* text) { std::free(text); }

// ---- Opening and closing ----

void bvgeo_open_options_init(bvgeo_open_options* options) {
    if (!options) return;
    *options = bvgeo_open_options{};
    options->version = BVGEO_OPEN_OPTIONS_VERSION;
    options->main_queue = BVGEO_MAIN_QUEUE_OWN_THREAD;
}

bvgeo_status bvgeo_open(const bvgeo_open_options* options, bvgeo_tracker** tracker) {
    CAPI_BEGIN
    CHECK_NOT_NULL(tracker);
    *tracker = nullptr;
    NOT_FROM_CALLBACK(); // a close waiting for the main queue holds the lifecycle lock
    bvgeo_open_options defaults;
    bvgeo_open_options_init(&defaults);
    const bvgeo_open_options& o = options ? *options : defaults;
    if (o.version != BVGEO_OPEN_OPTIONS_VERSION)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->version " + std::to_string(o.version) +
                                                    " is not BVGEO_OPEN_OPTIONS_VERSION (call bvgeo_open_options_init)");
    if (o.main_queue < BVGEO_MAIN_QUEUE_OWN_THREAD || o.main_queue > BVGEO_MAIN_QUEUE_VIRTUAL_TIME)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->main_queue " + std::to_string(o.main_queue) +
                                                    " is not a bvgeo_main_queue_mode (0 to 2)");
    if (!std::isfinite(o.start_time) || o.start_time < 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->start_time " + number(o.start_time) +
                                                    " is not a time (seconds since 1970, or 0 for now)");
    if (o.documents_directory && !bvgeo::capi::isValidUtf8(o.documents_directory))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->documents_directory is not valid UTF-8");

    std::lock_guard lock(lifecycleMutex);
    if (openTracker.load())
        return FAIL(BVGEO_ERR_STATE, "a tracker is already open in this process; close it first");

    bvgeo::capi::SessionOptions session;
    session.documentsDirectory = o.documents_directory && *o.documents_directory
                                     ? std::string(o.documents_directory)
                                     : bvgeo::defaultDocumentsDirectory();
    if (auto problem = prepareDirectory(session.documentsDirectory); !problem.empty())
        return FAIL(BVGEO_ERR_IO, problem);
    session.mode = static_cast<MainQueueMode>(o.main_queue);
    session.startTime = o.start_time > 0 ? o.start_time : static_cast<double>(std::time(nullptr));
    session.console = o.console;
    session.consoleUserData = o.console_user_data;

    auto handle = std::make_unique<bvgeo_tracker>();
    // Whatever the process held before (a C++ host's use of the library) goes first,
    // so the new platform is the one every service is made with.
    bvgeo::resetAllSharedInstances();
    handle->session = std::make_unique<Session>(session, handle.get());
    *tracker = handle.release();
    openTracker.store(*tracker, std::memory_order_release);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_close(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    if (!tracker) return succeed();
    NOT_FROM_CALLBACK();
    std::lock_guard lock(lifecycleMutex);
    SESSION(tracker);
    session->shutDown();
    openTracker.store(nullptr, std::memory_order_release);
    session->releaseLibraryState();
    delete tracker;
    return succeed();
    CAPI_END
}

// ---- Configuration ----

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
    if (p->version != BVGEO_PARAMETERS_VERSION)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "parameters->version " + std::to_string(p->version) +
                                                    " is not BVGEO_PARAMETERS_VERSION (call bvgeo_parameters_init)");
    auto bad = [&](const char* field, const std::string& value, const char* rule) {
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    std::string("parameters->") + field + " " + value + " is out of range (" + rule + ")");
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
    const bvgeo::ExtendedOptions defaults;
    *options = bvgeo_extended_options{};
    options->version = BVGEO_EXTENDED_OPTIONS_VERSION;
    options->durable_delivery = defaults.durableDelivery ? 1 : 0;
    options->outbox_max_reports = defaults.outboxMaxReports;
    options->outbox_max_age_seconds = defaults.outboxMaxAgeSeconds;
    options->max_log_rows = defaults.maxLogRows;
    options->max_location_rows = defaults.maxLocationRows;
    options->fence_listing_limit = defaults.fenceListingLimit;
}

bvgeo_status bvgeo_set_extended_options(bvgeo_tracker* tracker, const bvgeo_extended_options* options) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(options);
    if (options->version != BVGEO_EXTENDED_OPTIONS_VERSION)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "options->version " + std::to_string(options->version) +
                        " is not BVGEO_EXTENDED_OPTIONS_VERSION (call bvgeo_extended_options_init)");
    if (options->durable_delivery != 0 && options->durable_delivery != 1)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "options->durable_delivery " + std::to_string(options->durable_delivery) + " is not 0 or 1");
    if (options->outbox_max_age_seconds < 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->outbox_max_age_seconds " +
                                                    std::to_string(options->outbox_max_age_seconds) +
                                                    " is out of range (seconds >= 0)");
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
    BVGeoTracker::sharedInstance().setExtendedOptions(extended);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_get_extended_options(bvgeo_tracker* tracker, bvgeo_extended_options* options) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(options);
    const auto extended = BVGeoTracker::sharedInstance().extendedOptions();
    *options = bvgeo_extended_options{};
    options->version = BVGEO_EXTENDED_OPTIONS_VERSION;
    options->durable_delivery = extended.durableDelivery ? 1 : 0;
    options->outbox_max_reports = extended.outboxMaxReports;
    options->outbox_max_age_seconds = extended.outboxMaxAgeSeconds;
    options->max_log_rows = extended.maxLogRows;
    options->max_location_rows = extended.maxLocationRows;
    options->fence_listing_limit = extended.fenceListingLimit;
    return succeed();
    CAPI_END
}

// ---- Triggers ----

bvgeo_status bvgeo_set_trigger_callback(bvgeo_tracker* tracker, bvgeo_trigger_callback callback, void* user_data) {
    CAPI_BEGIN
    SESSION(tracker);
    session->setTriggerCallback(callback, user_data);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_list_triggers(bvgeo_tracker* tracker, bvgeo_trigger** triggers, size_t* count) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(triggers);
    CHECK_NOT_NULL(count);
    *triggers = nullptr;
    *count = 0;
    const auto stored = BVGeoTracker::sharedInstance().listTriggers();
    if (stored.empty()) return succeed();
    auto* list = static_cast<bvgeo_trigger*>(std::calloc(stored.size(), sizeof(bvgeo_trigger)));
    if (!list) return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
    for (std::size_t i = 0; i < stored.size(); ++i) {
        const bvgeo_trigger view = bvgeo::capi::toCTrigger(*stored[i]);
        list[i] = view;
        // The text must outlive the records it points into.
        list[i].device_id = duplicate(view.device_id);
        list[i].fence_id = duplicate(view.fence_id);
        list[i].fence_name = duplicate(view.fence_name);
        if (!list[i].device_id || !list[i].fence_id || !list[i].fence_name) {
            bvgeo_free_triggers(list, i + 1);
            return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
        }
    }
    *triggers = list;
    *count = stored.size();
    return succeed();
    CAPI_END
}

void bvgeo_free_triggers(bvgeo_trigger* triggers, size_t count) {
    if (!triggers) return;
    for (std::size_t i = 0; i < count; ++i) {
        std::free(const_cast<char*>(triggers[i].device_id));
        std::free(const_cast<char*>(triggers[i].fence_id));
        std::free(const_cast<char*>(triggers[i].fence_name));
    }
    std::free(triggers);
}

// ---- Running ----

bvgeo_status bvgeo_start(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    auto& facade = BVGeoTracker::sharedInstance();
    const bool configured = facade.isConfigured();
    facade.start(); // unconfigured: the facade logs its own line and starts nothing
    if (!configured)
        return failLogged(__func__, BVGEO_ERR_NOT_CONFIGURED,
                          "the tracker is not configured; call bvgeo_configure before bvgeo_start");
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_stop(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    BVGeoTracker::sharedInstance().stop();
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_reset(bvgeo_tracker* tracker, const char* name) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_TEXT(name);
    bool succeeded = false;
    bvgeo::BVError error;
    BVGeoTracker::sharedInstance().reset(
        name, [&] { succeeded = true; }, [&](const bvgeo::BVError& e) { error = e; });
    if (succeeded) return succeed();
    const auto status = static_cast<bvgeo_status>(error.code);
    switch (status) {
    case BVGEO_ERR_RESET_ARCHIVE_EXISTS:
    case BVGEO_ERR_RESET_NAME_MANDATORY:
    case BVGEO_ERR_RESET_NAME_INVALID: return FAIL(status, error.localizedDescription);
    default: return FAIL(BVGEO_ERR_INTERNAL, "reset failed: " + error.localizedDescription);
    }
    CAPI_END
}

bvgeo_status bvgeo_get_device_id(bvgeo_tracker* tracker, char** device_id) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(device_id);
    *device_id = duplicate(BVGeoTracker::sharedInstance().getDeviceId());
    if (!*device_id) return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_get_app_id(bvgeo_tracker* tracker, char** app_id) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(app_id);
    *app_id = duplicate(BVGeoTracker::sharedInstance().getAppId());
    if (!*app_id) return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_is_configured(bvgeo_tracker* tracker, int* configured) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(configured);
    *configured = BVGeoTracker::sharedInstance().isConfigured() ? 1 : 0;
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_log(bvgeo_tracker* tracker, const char* message) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_TEXT(message);
    BVGeoTracker::sharedInstance().log(message);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_pending_reports(bvgeo_tracker* tracker, size_t* count) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(count);
    auto& queue = bvgeo::RequestQueue::sharedInstance();
    *count = queue.requests().size() + queue.retryRequests().size();
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_get_database_path(bvgeo_tracker* tracker, char** path) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(path);
    const auto absolute = std::filesystem::absolute(bvgeo::BV1Database().path()).lexically_normal().string();
    *path = duplicate(absolute);
    if (!*path) return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
    return succeed();
    CAPI_END
}

// ---- Positions ----

bvgeo_status bvgeo_push_location(bvgeo_tracker* tracker, double latitude, double longitude, double accuracy,
                                 double time, int kind, int* received) {
    CAPI_BEGIN
    SESSION(tracker);
    if (!std::isfinite(latitude) || latitude < -90 || latitude > 90)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "latitude " + number(latitude) + " is outside -90..90");
    if (!std::isfinite(longitude) || longitude < -180 || longitude > 180)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "longitude " + number(longitude) + " is outside -180..180");
    if (std::isnan(accuracy) || std::isinf(accuracy))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "accuracy " + number(accuracy) + " is not a number of metres");
    if (!std::isfinite(time) || time < 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "time " + number(time) + " is not a time (seconds since 1970, or 0 for now)");
    if (kind < BVGEO_FIX_AUTOMATIC || kind > BVGEO_FIX_SIGNIFICANT_CHANGE)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "kind " + std::to_string(kind) + " is not a BVGEO_FIX_* value");
    if (session->mode() == MainQueueMode::VirtualTime) NOT_FROM_CALLBACK();
    bvgeo::Location fix{latitude, longitude, time > 0 ? time : bvgeo::platform().clock->currentTime()};
    fix.horizontalAccuracy = accuracy < 0 ? -1.0 : accuracy;
    const auto got = session->push(fix, static_cast<bvgeo::SimulatedDelivery>(kind));
    if (!got) return FAIL(BVGEO_ERR_TIMEOUT, "virtual time: the library kept busy past its bounds");
    if (received) *received = *got;
    return succeed();
    CAPI_END
}

// ---- Main queue ----

bvgeo_status bvgeo_main_queue_run(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    if (session->mode() != MainQueueMode::Host)
        return FAIL(BVGEO_ERR_STATE, "only in host main-queue mode (BVGEO_MAIN_QUEUE_HOST)");
    NOT_FROM_CALLBACK();
    if (!session->runMainQueue()) return FAIL(BVGEO_ERR_STATE, "another thread already serves the main queue");
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_main_queue_stop(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    if (session->mode() != MainQueueMode::Host)
        return FAIL(BVGEO_ERR_STATE, "only in host main-queue mode (BVGEO_MAIN_QUEUE_HOST)");
    session->stopMainQueue();
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_main_queue_run_pending(bvgeo_tracker* tracker, size_t* ran) {
    CAPI_BEGIN
    SESSION(tracker);
    if (session->mode() == MainQueueMode::OwnThread)
        return FAIL(BVGEO_ERR_STATE, "the library serves the main queue itself (BVGEO_MAIN_QUEUE_OWN_THREAD)");
    NOT_FROM_CALLBACK();
    if (session->mode() == MainQueueMode::Host && session->hostIsRunning())
        return FAIL(BVGEO_ERR_STATE, "another thread serves the main queue (bvgeo_main_queue_run)");
    const auto count = session->runPending();
    if (!count) return FAIL(BVGEO_ERR_TIMEOUT, "virtual time: the library kept busy past its bounds");
    if (ran) *ran = *count;
    return succeed();
    CAPI_END
}

// ---- Virtual time ----

bvgeo_status bvgeo_virtual_now(bvgeo_tracker* tracker, double* now) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(now);
    if (session->mode() != MainQueueMode::VirtualTime)
        return FAIL(BVGEO_ERR_STATE, "only in virtual-time mode (BVGEO_MAIN_QUEUE_VIRTUAL_TIME)");
    *now = session->virtualNow();
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_virtual_advance_to(bvgeo_tracker* tracker, double time) {
    CAPI_BEGIN
    SESSION(tracker);
    VIRTUAL_ONLY(session);
    if (!std::isfinite(time)) return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "time " + number(time) + " is not finite");
    if (!session->advanceTo(time)) return FAIL(BVGEO_ERR_TIMEOUT, "the library kept busy past its bounds");
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_virtual_settle(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    VIRTUAL_ONLY(session);
    if (!session->settle()) return FAIL(BVGEO_ERR_TIMEOUT, "the library kept busy past its bounds");
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_virtual_next_timer(bvgeo_tracker* tracker, int* has_timer, double* due) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(has_timer);
    CHECK_NOT_NULL(due);
    if (session->mode() != MainQueueMode::VirtualTime)
        return FAIL(BVGEO_ERR_STATE, "only in virtual-time mode (BVGEO_MAIN_QUEUE_VIRTUAL_TIME)");
    const auto next = session->nextTimer();
    *has_timer = next ? 1 : 0;
    *due = next.value_or(0.0);
    return succeed();
    CAPI_END
}

// ---- Debug console ----

void bvgeo_console_options_init(bvgeo_console_options* options) {
    if (!options) return;
    const bvgeo::DebugConsoleOptions defaults;
    *options = bvgeo_console_options{};
    options->version = BVGEO_CONSOLE_OPTIONS_VERSION;
    options->port = defaults.port;
    options->action_timeout_seconds = defaults.actionTimeoutSeconds;
}

bvgeo_status bvgeo_console_start(bvgeo_tracker* tracker, const bvgeo_console_options* options) {
    CAPI_BEGIN
    SESSION(tracker);
    bvgeo_console_options defaults;
    bvgeo_console_options_init(&defaults);
    const bvgeo_console_options& o = options ? *options : defaults;
    if (o.version != BVGEO_CONSOLE_OPTIONS_VERSION)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->version " + std::to_string(o.version) +
                                                    " is not BVGEO_CONSOLE_OPTIONS_VERSION (call bvgeo_console_options_init)");
    if (o.port < 0 || o.port > 65535)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->port " + std::to_string(o.port) + " is outside 0..65535");
    if (o.tile_url_template && !bvgeo::capi::isValidUtf8(o.tile_url_template))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->tile_url_template is not valid UTF-8");
    if (!std::isfinite(o.action_timeout_seconds) || o.action_timeout_seconds <= 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "options->action_timeout_seconds " + number(o.action_timeout_seconds) + " is not > 0");
    bvgeo::DebugConsoleOptions console;
    console.port = o.port;
    if (o.tile_url_template) console.tileUrlTemplate = o.tile_url_template;
    console.actionTimeoutSeconds = o.action_timeout_seconds;
    bool alreadyRunning = false;
    if (auto problem = session->startConsole(console, alreadyRunning))
        return FAIL(alreadyRunning ? BVGEO_ERR_STATE : BVGEO_ERR_IO, *problem);
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_console_stop(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    session->stopConsole();
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_console_url(bvgeo_tracker* tracker, char** url) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(url);
    *url = duplicate(session->consoleUrl());
    if (!*url) return FAIL(BVGEO_ERR_INTERNAL, "out of memory");
    return succeed();
    CAPI_END
}

} // extern "C"
