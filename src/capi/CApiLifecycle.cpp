// The C API's opening and closing of the one tracker a process has, and the calls
// that need no tracker at all.

#include "capi/CApiCall.hpp"
#include "capi/FixTime.hpp"
#include "capi/Utf8.hpp"
#include "capi/WritableDirectory.hpp"

#include "platform/SharedInstance.hpp"
#include <bvgeo/platform/LinuxPlatform.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>

using namespace bvgeo::capi;

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
    case BVGEO_ERR_REPORTS_DROPPED: return "closed, with trigger reports lost";
    case BVGEO_ERR_RESET_ARCHIVE_EXISTS: return "reset: the archive already exists";
    case BVGEO_ERR_RESET_NAME_MANDATORY: return "reset: the archive name is empty";
    case BVGEO_ERR_RESET_NAME_INVALID: return "reset: the archive name is not a plain file name";
    default: return "unknown status";
    }
}

const char* bvgeo_last_error(void) { return lastErrorText().c_str(); }

void bvgeo_free(void* text) { std::free(text); }

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
    CHECK_VERSION("options", o.version, BVGEO_OPEN_OPTIONS_VERSION, bvgeo_open_options_init);
    if (o.main_queue < BVGEO_MAIN_QUEUE_OWN_THREAD || o.main_queue > BVGEO_MAIN_QUEUE_VIRTUAL_TIME)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->main_queue " + std::to_string(o.main_queue) +
                                                    " is not a bvgeo_main_queue_mode (0 to 2)");
    if (auto problem = timeProblem("options->start_time", o.start_time))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, *problem);
    if (o.documents_directory && !bvgeo::capi::isValidUtf8(o.documents_directory))
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT, "options->documents_directory is not valid UTF-8");

    std::lock_guard lock(lifecycleMutex);
    if (openTracker.load())
        return FAIL(BVGEO_ERR_STATE, "a tracker is already open in this process; close it first");

    bvgeo::capi::SessionOptions session;
    session.documentsDirectory = o.documents_directory && *o.documents_directory
                                     ? std::string(o.documents_directory)
                                     : bvgeo::defaultDocumentsDirectory();
    if (auto problem = prepareWritableDirectory(session.documentsDirectory, "documents directory"))
        return FAIL(BVGEO_ERR_IO, *problem);
    session.mode = static_cast<MainQueueMode>(o.main_queue);
    session.startTime = o.start_time; // 0: virtual time starts at the first fix
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
    return bvgeo_close_within(tracker, BVGEO_CLOSE_TIMEOUT_SECONDS, nullptr, nullptr);
}

bvgeo_status bvgeo_close_within(bvgeo_tracker* tracker, double timeout_seconds, size_t* reports_owed,
                                size_t* reports_in_outbox) {
    CAPI_BEGIN
    if (reports_owed) *reports_owed = 0;
    if (reports_in_outbox) *reports_in_outbox = 0;
    if (!tracker) return succeed();
    NOT_FROM_CALLBACK();
    if (!std::isfinite(timeout_seconds) || timeout_seconds < 0)
        return FAIL(BVGEO_ERR_INVALID_ARGUMENT,
                    "timeout_seconds " + number(timeout_seconds) + " is not a number of seconds >= 0");
    bvgeo::FlushResult left;
    {
        std::lock_guard lock(lifecycleMutex);
        SESSION(tracker);
        left = session->shutDown(timeout_seconds);
        openTracker.store(nullptr, std::memory_order_release);
        session->releaseLibraryState();
        delete tracker;
    }
    if (reports_owed) *reports_owed = left.reportsOwed;
    if (reports_in_outbox) *reports_in_outbox = std::min(left.reportsInOutbox, left.reportsOwed);
    if (left.reportsOwed > left.reportsInOutbox)
        return FAIL(BVGEO_ERR_REPORTS_DROPPED,
                    "closed; " + std::to_string(left.reportsOwed - left.reportsInOutbox) +
                        " trigger report(s) the server had not taken were dropped (durable delivery keeps them)");
    return succeed();
    CAPI_END
}

} // extern "C"
