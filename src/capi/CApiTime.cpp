// The C API's positions and time: fixes the host pushes, the main queue in host
// mode, and the clock in virtual-time mode.

#include "capi/CApiCall.hpp"
#include "capi/FixTime.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <cmath>

using namespace bvgeo::capi;

extern "C" {

namespace {

// Hands a checked fix to the session; 0 as its time is the clock's now.
bvgeo_status pushChecked(Session& session, const bvgeo::Location& fix, int kind, int* received) {
    // A fix runs the pipeline, whose lines come back to the console: one pushed from
    // there would feed itself.
    if (CallbackConsole::runningOnThisThread())
        return FAIL(BVGEO_ERR_STATE, "not allowed from inside a console callback");
    std::string refused;
    const auto got = session.push(fix, static_cast<bvgeo::SimulatedDelivery>(kind), refused);
    if (!refused.empty()) return FAIL(BVGEO_ERR_INVALID_ARGUMENT, refused);
    if (!got) return FAIL(BVGEO_ERR_TIMEOUT, "virtual time: the library kept busy past its bounds");
    if (received) *received = *got;
    return succeed();
}

} // namespace

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
    if (auto problem = bvgeo::capi::timeProblem("time", time)) return FAIL(BVGEO_ERR_INVALID_ARGUMENT, *problem);
    if (kind < BVGEO_FIX_AUTOMATIC || kind > BVGEO_FIX_SIGNIFICANT_CHANGE)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "kind " + std::to_string(kind) + " is not a BVGEO_FIX_* value");
    if (session->mode() == MainQueueMode::VirtualTime) NOT_FROM_CALLBACK();
    bvgeo::Location fix{latitude, longitude, time};
    fix.horizontalAccuracy = accuracy < 0 ? -1.0 : accuracy;
    return pushChecked(*session, fix, kind, received);
    CAPI_END
}

void bvgeo_fix_init(bvgeo_fix* fix) {
    if (!fix) return;
    *fix = bvgeo_fix{};
    fix->version = BVGEO_FIX_VERSION;
    fix->accuracy = -1.0;
    fix->speed = -1.0;
    fix->hdop = -1.0;
    fix->satellites_used = -1;
    fix->mode = BVGEO_FIX_MODE_UNKNOWN;
}

bvgeo_status bvgeo_push_fix(bvgeo_tracker* tracker, const bvgeo_fix* fix, int kind, int* received) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(fix);
    CHECK_VERSION("fix", fix->version, BVGEO_FIX_VERSION, bvgeo_fix_init);
    if (!std::isfinite(fix->latitude) || fix->latitude < -90 || fix->latitude > 90)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "fix->latitude " + number(fix->latitude) + " is outside -90..90");
    if (!std::isfinite(fix->longitude) || fix->longitude < -180 || fix->longitude > 180)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "fix->longitude " + number(fix->longitude) + " is outside -180..180");
    if (auto problem = bvgeo::capi::timeProblem("fix->time", fix->time))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, *problem);
    if (fix->mode < BVGEO_FIX_MODE_UNKNOWN || fix->mode > BVGEO_FIX_MODE_3D)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "fix->mode " + std::to_string(fix->mode) + " is not a BVGEO_FIX_MODE_* value");
    if (kind < BVGEO_FIX_AUTOMATIC || kind > BVGEO_FIX_SIGNIFICANT_CHANGE)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "kind " + std::to_string(kind) + " is not a BVGEO_FIX_* value");
    if (session->mode() == MainQueueMode::VirtualTime) NOT_FROM_CALLBACK();
    // Quality figures the library cannot use say nothing: they become "unknown".
    const auto known = [](double value) { return std::isnan(value) || value < 0 ? -1.0 : value; };
    bvgeo::Location location{fix->latitude, fix->longitude, fix->time};
    location.horizontalAccuracy = known(fix->accuracy);
    location.speed = std::isfinite(fix->speed) ? known(fix->speed) : -1.0;
    location.hdop = known(fix->hdop);
    location.satellitesUsed = fix->satellites_used < 0 ? -1 : fix->satellites_used;
    location.fixMode = static_cast<bvgeo::FixMode>(fix->mode);
    return pushChecked(*session, location, kind, received);
    CAPI_END
}

bvgeo_status bvgeo_main_queue_run(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    HOST_MODE(session);
    NOT_FROM_CALLBACK();
    if (!session->runMainQueue()) return FAIL(BVGEO_ERR_STATE, "another thread already serves the main queue");
    return succeed();
    CAPI_END
}

bvgeo_status bvgeo_main_queue_stop(bvgeo_tracker* tracker) {
    CAPI_BEGIN
    SESSION(tracker);
    HOST_MODE(session);
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

bvgeo_status bvgeo_virtual_now(bvgeo_tracker* tracker, double* now) {
    CAPI_BEGIN
    SESSION(tracker);
    CHECK_NOT_NULL(now);
    VIRTUAL_TIME_MODE(session);
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
    VIRTUAL_TIME_MODE(session);
    const auto next = session->nextTimer();
    *has_timer = next ? 1 : 0;
    *due = next.value_or(0.0);
    return succeed();
    CAPI_END
}

} // extern "C"
