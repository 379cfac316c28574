// How every function of the C API (include/bvgeo/bvgeo.h) checks what it was given
// and reports the outcome: a status, a log line and the calling thread's last-error
// text. The open tracker is read by every call; bvgeo_open and bvgeo_close set it
// under the lifecycle lock. No exception leaves an exported function.
#pragma once

#include "capi/CallbackConsole.hpp"
#include "capi/Session.hpp"
#include "capi/TriggerCallback.hpp"

#include <bvgeo/bvgeo.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <string>

struct bvgeo_tracker {
    std::unique_ptr<bvgeo::capi::Session> session;
};

namespace bvgeo::capi {

// The open tracker, read by every call; open and close take the lifecycle lock.
extern std::atomic<bvgeo_tracker*> openTracker;
extern std::mutex lifecycleMutex;

// The text bvgeo_last_error returns on this thread.
const std::string& lastErrorText();

bvgeo_status succeed();

// Records the failure for bvgeo_last_error and logs it: into the library's log while
// a tracker is open (which echoes to the console in debug mode), else on stderr.
bvgeo_status fail(const char* function, int line, bvgeo_status status, const std::string& message);

// A failure the facade has already logged in its own words.
bvgeo_status failLogged(const char* function, bvgeo_status status, const std::string& message);

// Why `value` is not usable text, or nullptr when it is.
const char* textProblem(const char* value);

// The session behind an open handle, or nullptr.
Session* sessionOf(bvgeo_tracker* tracker);

// Text for the caller, freed with bvgeo_free; nullptr when memory ran out.
char* duplicate(const std::string& text);

// A double as the messages show it ("%g").
std::string number(double value);

// "<owner>-><field> <value> is out of range (<rule>)", the words of every options check.
std::string outOfRange(const char* owner, const char* field, const std::string& value, const char* rule);

// Hands `text` to the caller in `*out` (freed with bvgeo_free).
bvgeo_status giveText(const char* function, int line, char** out, const std::string& text);

} // namespace bvgeo::capi

#define FAIL(status, message) ::bvgeo::capi::fail(__func__, __LINE__, (status), (message))

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

#define CHECK_TEXT(value)                                                                                             \
    do {                                                                                                              \
        if (const char* problem = ::bvgeo::capi::textProblem(value))                                                  \
            return FAIL(BVGEO_ERR_INVALID_ARGUMENT, std::string(#value " ") + problem);                               \
    } while (0)

#define CHECK_NOT_NULL(pointer)                                                                                       \
    do {                                                                                                              \
        if (!(pointer)) return FAIL(BVGEO_ERR_INVALID_ARGUMENT, #pointer " is NULL");                                \
    } while (0)

// A versioned struct must come from its own init function:
// "options->version 3 is not BVGEO_OPEN_OPTIONS_VERSION (call bvgeo_open_options_init)".
#define CHECK_VERSION(owner, version, expected, init)                                                                 \
    do {                                                                                                              \
        if ((version) != (expected))                                                                                  \
            return FAIL(BVGEO_ERR_INVALID_ARGUMENT, std::string(owner "->version ") + std::to_string(version) +       \
                                                        " is not " #expected " (call " #init ")");                    \
    } while (0)

#define SESSION(tracker)                                                                                              \
    ::bvgeo::capi::Session* session = ::bvgeo::capi::sessionOf(tracker);                                              \
    if (!session)                                                                                                     \
        return FAIL((tracker) ? BVGEO_ERR_STATE : BVGEO_ERR_INVALID_ARGUMENT,                                         \
                    (tracker) ? "the tracker is not open (closed, or never opened)" : "tracker is NULL");             \
    (void)session

#define NOT_FROM_CALLBACK()                                                                                           \
    do {                                                                                                              \
        if (::bvgeo::capi::TriggerCallback::runningOnThisThread())                                                    \
            return FAIL(BVGEO_ERR_STATE, "not allowed from inside a trigger callback");                               \
        if (::bvgeo::capi::CallbackConsole::runningOnThisThread())                                                    \
            return FAIL(BVGEO_ERR_STATE, "not allowed from inside a console callback");                               \
    } while (0)

#define VIRTUAL_TIME_MODE(session)                                                                                    \
    do {                                                                                                              \
        if ((session)->mode() != ::bvgeo::capi::MainQueueMode::VirtualTime)                                           \
            return FAIL(BVGEO_ERR_STATE, "only in virtual-time mode (BVGEO_MAIN_QUEUE_VIRTUAL_TIME)");                \
    } while (0)

#define VIRTUAL_ONLY(session)                                                                                         \
    do {                                                                                                              \
        VIRTUAL_TIME_MODE(session);                                                                                   \
        NOT_FROM_CALLBACK();                                                                                          \
    } while (0)

#define HOST_MODE(session)                                                                                            \
    do {                                                                                                              \
        if ((session)->mode() != ::bvgeo::capi::MainQueueMode::Host)                                                  \
            return FAIL(BVGEO_ERR_STATE, "only in host main-queue mode (BVGEO_MAIN_QUEUE_HOST)");                     \
    } while (0)

// Ends the call handing `text` to the caller in `*out`.
#define RETURN_TEXT(out, text) return ::bvgeo::capi::giveText(__func__, __LINE__, (out), (text))
