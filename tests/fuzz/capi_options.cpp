// The C API's option and configuration entry points fed whatever a host might pass:
// text that is not UTF-8, versions, enumerations and numbers out of range, NaN and
// infinities, NULLs where they are allowed. A call that succeeds reads back as it
// was set; a call that fails changes nothing. Tracking is never started, so no URL
// the input makes is ever requested.
#include "capi/Utf8.hpp"
#include "datastore/BV1Database.hpp"
#include "FuzzSupport.hpp"

#include <bvgeo/bvgeo.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

using bvgeo::fuzz::FuzzBytes;

bvgeo_tracker* tracker() {
    static bvgeo_tracker* open = [] {
        const char* base = std::getenv("TMPDIR");
        static std::string directory = std::string(base && *base ? base : "/tmp") + "/bvgeo-fuzz-XXXXXX";
        if (!::mkdtemp(directory.data())) std::abort();
        bvgeo_open_options options;
        bvgeo_open_options_init(&options);
        options.documents_directory = directory.c_str();
        options.main_queue = BVGEO_MAIN_QUEUE_VIRTUAL_TIME;
        options.console = [](const char*, void*) {};
        bvgeo_tracker* t = nullptr;
        if (bvgeo_open(&options, &t) != BVGEO_OK) std::abort();
        // The tracker stays open to the end: the library's instances outlive static
        // teardown by design, and closing after it would reset slots already gone.
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(directory, ignored);
        });
        return t;
    }();
    return open;
}

bool same(const void* a, const void* b, std::size_t n) { return std::memcmp(a, b, n) == 0; }

// Field by field: the structs have padding whose bytes mean nothing.
bool sameParameters(const bvgeo_parameters& a, const bvgeo_parameters& b) {
    return same(&a.accuracy, &b.accuracy, sizeof a.accuracy) &&
           same(&a.distance_filter, &b.distance_filter, sizeof a.distance_filter) &&
           a.cache_expiration == b.cache_expiration && same(&a.zone_interval, &b.zone_interval, sizeof a.zone_interval) &&
           a.linger_time == b.linger_time && a.max_linger_time == b.max_linger_time &&
           same(&a.request_retry_interval, &b.request_retry_interval, sizeof a.request_retry_interval);
}

bool sameExtended(const bvgeo_extended_options& a, const bvgeo_extended_options& b) {
    return a.durable_delivery == b.durable_delivery && a.outbox_max_reports == b.outbox_max_reports &&
           a.outbox_max_age_seconds == b.outbox_max_age_seconds && a.max_log_rows == b.max_log_rows &&
           a.max_location_rows == b.max_location_rows && a.fence_listing_limit == b.fence_listing_limit;
}

void setParameters(bvgeo_tracker* t, FuzzBytes& in) {
    bvgeo_parameters before, wanted, after;
    bvgeo_get_parameters(t, &before);
    bvgeo_parameters_init(&wanted);
    if (in.flag()) wanted.version = in.value<unsigned>();
    wanted.accuracy = in.value<double>();
    wanted.distance_filter = in.value<double>();
    wanted.cache_expiration = in.value<std::int64_t>();
    wanted.zone_interval = in.value<double>();
    wanted.linger_time = in.value<std::int64_t>();
    wanted.max_linger_time = in.value<std::int64_t>();
    wanted.request_retry_interval = in.value<double>();
    const bvgeo_status status = bvgeo_set_parameters(t, &wanted);
    bvgeo_get_parameters(t, &after);
    if (!sameParameters(after, status == BVGEO_OK ? wanted : before)) __builtin_trap();
}

void setExtended(bvgeo_tracker* t, FuzzBytes& in) {
    bvgeo_extended_options before, wanted, after;
    bvgeo_get_extended_options(t, &before);
    bvgeo_extended_options_init(&wanted);
    if (in.flag()) wanted.version = in.value<unsigned>();
    wanted.durable_delivery = in.value<int>();
    wanted.outbox_max_reports = in.value<std::uint64_t>();
    wanted.outbox_max_age_seconds = in.value<std::int64_t>();
    wanted.max_log_rows = in.value<std::uint64_t>();
    wanted.max_location_rows = in.value<std::uint64_t>();
    wanted.fence_listing_limit = in.value<std::uint64_t>();
    const bvgeo_status status = bvgeo_set_extended_options(t, &wanted);
    bvgeo_get_extended_options(t, &after);
    if (!sameExtended(after, status == BVGEO_OK ? wanted : before)) __builtin_trap();
}

void setUrls(bvgeo_tracker* t, FuzzBytes& in) {
    const int environment = in.value<std::int8_t>();
    const std::string api = in.text(), assets = in.text();
    const bool giveApi = in.flag(), giveAssets = in.flag();
    char *apiBefore = nullptr, *assetsBefore = nullptr;
    const bool known = bvgeo_get_environment_urls(t, environment, &apiBefore, &assetsBefore) == BVGEO_OK;
    const bvgeo_status status = bvgeo_set_environment_urls(t, environment, giveApi ? api.c_str() : nullptr,
                                                           giveAssets ? assets.c_str() : nullptr);
    if (known) {
        char *apiAfter = nullptr, *assetsAfter = nullptr;
        bvgeo_get_environment_urls(t, environment, &apiAfter, &assetsAfter);
        const std::string wantApi = status == BVGEO_OK && giveApi ? api.c_str() : apiBefore;
        const std::string wantAssets = status == BVGEO_OK && giveAssets ? assets.c_str() : assetsBefore;
        if (wantApi != apiAfter || wantAssets != assetsAfter) __builtin_trap();
        bvgeo_free(apiAfter);
        bvgeo_free(assetsAfter);
    } else if (status == BVGEO_OK) {
        __builtin_trap();
    }
    bvgeo_free(apiBefore);
    bvgeo_free(assetsBefore);
}

void configure(bvgeo_tracker* t, FuzzBytes& in) {
    const std::string appId = in.text();
    const int mode = in.value<std::int8_t>(), environment = in.value<std::int8_t>();
    int before = -1, after = -1;
    bvgeo_is_configured(t, &before);
    const bvgeo_status status = bvgeo_configure(t, appId.c_str(), mode, environment);
    bvgeo_is_configured(t, &after);
    // Text that is not UTF-8 changes nothing; any other refusal leaves it unconfigured.
    const int expected = status == BVGEO_OK ? 1 : bvgeo::capi::isValidUtf8(appId.c_str()) ? 0 : before;
    if (after != expected) __builtin_trap();
    if (status == BVGEO_OK) {
        char* stored = nullptr;
        bvgeo_get_app_id(t, &stored);
        if (appId.c_str() != std::string(stored)) __builtin_trap();
        bvgeo_free(stored);
    }
}

void openAnother(FuzzBytes& in) {
    bvgeo_open_options options;
    bvgeo_open_options_init(&options);
    if (in.flag()) options.version = in.value<unsigned>();
    const std::string directory = in.text();
    // The directory is never touched while a tracker is open: the call is refused first.
    options.documents_directory = in.flag() ? directory.c_str() : nullptr;
    options.main_queue = in.value<int>();
    options.start_time = in.value<double>();
    bvgeo_tracker* second = nullptr;
    if (bvgeo_open(&options, &second) == BVGEO_OK || second != nullptr) __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    bvgeo_tracker* t = tracker();
    FuzzBytes in(data, size);
    for (int call = 0; call < 8 && !in.remaining().empty(); ++call) {
        switch (in.value<std::uint8_t>() % 5) {
        case 0: configure(t, in); break;
        case 1: setUrls(t, in); break;
        case 2: setParameters(t, in); break;
        case 3: setExtended(t, in); break;
        case 4: openAnother(in); break;
        }
    }
    // Each refusal is a log line: the table keeps its newest rows whatever the input set.
    bvgeo::BV1Database::setRowLimit("log", 1000);
    return 0;
}
