// The C API's running tracker: start, stop, reset, and what it can tell about itself.

#include "capi/CApiCall.hpp"
#include "datastore/BV1Database.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <filesystem>

using bvgeo::BVGeoTracker;
using namespace bvgeo::capi;

extern "C" {

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
    RETURN_TEXT(device_id, BVGeoTracker::sharedInstance().getDeviceId());
    CAPI_END
}

bvgeo_status bvgeo_get_app_id(bvgeo_tracker* tracker, char** app_id) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(app_id);
    RETURN_TEXT(app_id, BVGeoTracker::sharedInstance().getAppId());
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

bvgeo_status bvgeo_get_database_path(bvgeo_tracker* tracker, char** path) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(path);
    RETURN_TEXT(path, std::filesystem::absolute(bvgeo::BV1Database().path()).lexically_normal().string());
    CAPI_END
}

} // extern "C"
