/* bvgeo.h: the C API of bvgeo, for hosts that are not written in C++ (a Swift or
 * Kotlin app through its native bridge, a Go or Rust service, Python over ctypes).
 * Plain C99, usable from C++. Link with -lbvgeo (pkg-config bvgeo).
 *
 * One tracker per process. bvgeo_open installs the platform the library runs on
 * (documents directory, main queue, location source) and hands out the process's
 * one tracker; bvgeo_close stops it and lets go of all library state, after which
 * bvgeo_open may be called again (with another documents directory, say). The
 * tracker is the C++ facade BVGeoTracker: configure, set parameters, register a
 * callback, start; every operation behaves as the facade's of the same name.
 *
 * Errors. Every operation that can fail returns a bvgeo_status; BVGEO_OK is 0. A
 * failure also writes one log line (into the library's log table and console while
 * a tracker is open, to standard error otherwise) and leaves a description for
 * bvgeo_last_error(). Nothing here aborts or throws on bad input: NULL pointers,
 * text that is not UTF-8, enumeration values and parameters out of range are
 * answered with BVGEO_ERR_INVALID_ARGUMENT and change nothing.
 *
 * Memory. Text the library returns through a `char **` is the caller's, freed
 * with bvgeo_free(); trigger lists with bvgeo_free_triggers(). Text the library
 * passes to a callback is valid only during that call. Text the caller passes in
 * is copied before the call returns.
 *
 * Threads. Any function may be called from any thread, with these exceptions:
 *  - bvgeo_close must not run concurrently with other calls on the same tracker
 *    (other than callbacks the library makes while closing); neither it nor
 *    bvgeo_open may be called from inside a callback (BVGEO_ERR_STATE);
 *  - the main-queue and virtual-time functions (bvgeo_main_queue_*,
 *    bvgeo_virtual_*), and bvgeo_push_location in virtual-time mode, must not be
 *    called from inside a trigger callback (they answer BVGEO_ERR_STATE);
 *  - from inside a console callback, bvgeo_open, bvgeo_close, the main-queue and
 *    virtual-time functions and bvgeo_push_location answer BVGEO_ERR_STATE; any
 *    other function may be called there (bvgeo_log, bvgeo_pending_reports, the
 *    getters and setters...).
 * No lock of the library is held while it calls a callback, so a callback may also
 * hand work to other threads that call the library, and wait for them; in virtual
 * time, though, the thread that moves time runs the callbacks, and a callback that
 * waits for another thread's bvgeo_push_location or bvgeo_virtual_* waits forever.
 * The trigger callback always runs on the library's main queue, one call at a time,
 * in the order the triggers were produced: on a thread of the library's own
 * (BVGEO_MAIN_QUEUE_OWN_THREAD), on the host's thread inside bvgeo_main_queue_run
 * or bvgeo_main_queue_run_pending (BVGEO_MAIN_QUEUE_HOST), or on the thread that
 * drives virtual time (BVGEO_MAIN_QUEUE_VIRTUAL_TIME).
 */
#ifndef BVGEO_H
#define BVGEO_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define BVGEO_C_API __attribute__((visibility("default")))
#else
#define BVGEO_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define BVGEO_VERSION "1.3.0"
#define BVGEO_VERSION_MAJOR 1
#define BVGEO_VERSION_MINOR 3
#define BVGEO_VERSION_PATCH 0

/* ---- Results ---------------------------------------------------------------- */

typedef enum bvgeo_status {
    BVGEO_OK = 0,
    BVGEO_ERR_INVALID_ARGUMENT = 1, /* NULL, not UTF-8, out of range; nothing changed */
    BVGEO_ERR_STATE = 2,            /* wrong moment: no tracker open, another one open, wrong main-queue mode, called from a callback */
    BVGEO_ERR_NOT_CONFIGURED = 3,   /* bvgeo_start before a successful bvgeo_configure */
    BVGEO_ERR_TIMEOUT = 4,          /* virtual time: the library kept busy past its bounds (a transfer hung) */
    BVGEO_ERR_IO = 5,               /* the documents directory or a port could not be used */
    BVGEO_ERR_INTERNAL = 6,         /* an unexpected failure inside the library (out of memory) */
    BVGEO_ERR_REPORTS_DROPPED = 7,  /* bvgeo_close: closed, but trigger reports the server had not taken were lost */
    /* bvgeo_reset: the codes of BVErrorCodes (error domain "morlane.bvg"). */
    BVGEO_ERR_RESET_ARCHIVE_EXISTS = 1000, /* NAME.sqlite already exists beside the database */
    BVGEO_ERR_RESET_NAME_MANDATORY = 1001, /* the archive name is empty */
    BVGEO_ERR_RESET_NAME_INVALID = 1002    /* the archive name holds '/', or is "." or ".." */
} bvgeo_status;

/* The library version, "1.3.0". Static text; never free it. */
BVGEO_C_API const char *bvgeo_version(void);

/* A short English name of a status ("invalid argument"). Static text. */
BVGEO_C_API const char *bvgeo_status_text(int status);

/* What the last failed call on this thread said ("bvgeo_configure: app_id is not
 * valid UTF-8"); "" after a call that succeeded. Valid until the next bvgeo call on
 * this thread; never free it. */
BVGEO_C_API const char *bvgeo_last_error(void);

/* Frees text returned by the library. NULL is allowed. */
BVGEO_C_API void bvgeo_free(void *text);

/* ---- Vocabulary ----------------------------------------------------------------- */

enum {
    BVGEO_ENVIRONMENT_PRODUCTION = 0,
    BVGEO_ENVIRONMENT_STAGING = 1,
    BVGEO_ENVIRONMENT_QA = 2,
    BVGEO_ENVIRONMENT_DEVELOPMENT = 3
};

enum {
    BVGEO_TRIGGER_MODE_BOTH = 0,       /* callback and server */
    BVGEO_TRIGGER_MODE_LOCAL_ONLY = 1, /* callback only */
    BVGEO_TRIGGER_MODE_REMOTE_ONLY = 2 /* server only */
};

enum { BVGEO_TRIGGER_ENTER = 0, BVGEO_TRIGGER_EXIT = 1, BVGEO_TRIGGER_LINGER = 2 };

enum {
    BVGEO_LOCATION_EVENT_UNKNOWN = 0,
    BVGEO_LOCATION_EVENT_REGULAR = 1,
    BVGEO_LOCATION_EVENT_SIGNIFICANT_CHANGES = 2
};

/* Desired-accuracy and distance-filter values with a meaning of their own. */
#define BVGEO_ACCURACY_BEST (-1.0)
#define BVGEO_ACCURACY_NEAREST_TEN_METERS 10.0
#define BVGEO_ACCURACY_HUNDRED_METERS 100.0
#define BVGEO_DISTANCE_FILTER_NONE (-1.0)

/* One trigger, with the fields a C++ delegate gets in its BVTrigger. */
typedef struct bvgeo_trigger {
    const char *device_id;      /* 36-character UUID text */
    const char *event;          /* "enter", "exit" or "linger" */
    int type;                   /* BVGEO_TRIGGER_ENTER, _EXIT or _LINGER */
    int64_t timestamp;          /* seconds since 1970-01-01 UTC */
    const char *fence_id;
    const char *fence_name;
    const char *location_event; /* "unknown", "regular" or "significantchanges" */
    int location_event_type;    /* BVGEO_LOCATION_EVENT_* */
} bvgeo_trigger;

/* ---- Opening and closing ------------------------------------------------------ */

typedef struct bvgeo_tracker bvgeo_tracker;

typedef enum bvgeo_main_queue_mode {
    /* The library serves its main queue on a thread of its own. */
    BVGEO_MAIN_QUEUE_OWN_THREAD = 0,
    /* The host serves it: bvgeo_main_queue_run on a thread that then counts as the
     * main thread, or bvgeo_main_queue_run_pending from the host's own loop. */
    BVGEO_MAIN_QUEUE_HOST = 1,
    /* Virtual time: the clock stands still until the host moves it, and nothing
     * runs on a thread of the library's own but HTTP transfers. bvgeo_push_location
     * sets the clock to the fix's time and runs everything the fix started (zone
     * download, trigger decisions, callbacks, due timers) before it returns;
     * bvgeo_virtual_advance_to lets time run on. A recorded track of hours plays in
     * seconds, with what a device would have produced over the same hours. */
    BVGEO_MAIN_QUEUE_VIRTUAL_TIME = 2
} bvgeo_main_queue_mode;

/* Receives the library's console lines (its debug echo of log lines, start-up
 * notes, HTTP and file diagnostics), one whole line per call, from any thread;
 * calls on different threads may overlap. It may call the library (see Threads
 * above for the few calls it may not make). A line written while the callback runs
 * on the same thread (the echo of a bvgeo_log it made) is not handed to it again:
 * such log lines are dropped (the log table still has them), warnings go to
 * standard error. After bvgeo_close returns it is never called again. */
typedef void (*bvgeo_console_callback)(const char *line, void *user_data);

#define BVGEO_OPEN_OPTIONS_VERSION 1

typedef struct bvgeo_open_options {
    unsigned int version;            /* BVGEO_OPEN_OPTIONS_VERSION */
    const char *documents_directory; /* where the database lives; NULL or "": $XDG_DATA_HOME/bvgeo, else ~/.local/share/bvgeo. Created when missing. */
    int main_queue;                  /* a bvgeo_main_queue_mode */
    double start_time;               /* virtual time only: the clock's start, seconds since 1970; 0: the first fix's time
                                        (or the first bvgeo_virtual_advance_to); until then the clock reads the wall clock */
    bvgeo_console_callback console;  /* NULL: standard error */
    void *console_user_data;
} bvgeo_open_options;

/* Fills `options` with the defaults: own-thread main queue, default directory,
 * console on standard error. */
BVGEO_C_API void bvgeo_open_options_init(bvgeo_open_options *options);

/* Installs the platform and hands out the process's tracker. `options` may be NULL
 * (the defaults). BVGEO_ERR_STATE while another tracker is open; BVGEO_ERR_IO when
 * the documents directory cannot be created or written. Any library state the
 * process had before (from the C++ API) is let go first. */
BVGEO_C_API bvgeo_status bvgeo_open(const bvgeo_open_options *options, bvgeo_tracker **tracker);

/* How long bvgeo_close lets work in progress and owed reports finish, in seconds. */
#define BVGEO_CLOSE_TIMEOUT_SECONDS 10.0

/* Stops tracking and the debug console, then lets work already started finish, up
 * to a deadline: zone answers, trigger decisions, callbacks (on the library's own
 * thread; in BVGEO_MAIN_QUEUE_HOST mode on the bvgeo_main_queue_run thread, or, if
 * none serves the queue, on the closing thread), and the trigger reports still
 * owed, which are sent at once rather than at their timers (one try each; in
 * virtual time too, without moving the clock). Then stops the main queue and lets
 * go of all library state (the database is closed). The handle is invalid after
 * it, whatever the status. NULL is allowed and does nothing. A running
 * bvgeo_main_queue_run is stopped and waited for.
 *
 * bvgeo_close_within takes the deadline (seconds of real time, >= 0; 0 still
 * sends nothing new but lets nothing hang) and tells what is left: *reports_owed
 * the reports the server has not taken, *reports_in_outbox how many of them (with
 * durable delivery) wait in BVGOutbox.sqlite for the next open; either may be
 * NULL. BVGEO_ERR_REPORTS_DROPPED when reports were owed and not kept, so they are
 * lost (the tracker is closed all the same). bvgeo_close is bvgeo_close_within
 * with BVGEO_CLOSE_TIMEOUT_SECONDS. */
BVGEO_C_API bvgeo_status bvgeo_close(bvgeo_tracker *tracker);
BVGEO_C_API bvgeo_status bvgeo_close_within(bvgeo_tracker *tracker, double timeout_seconds, size_t *reports_owed,
                                            size_t *reports_in_outbox);

/* ---- Configuration -------------------------------------------------------------- */

/* BVGeoTracker::configure. An empty app_id, or a mode or environment out of range,
 * is refused by the facade as in C++ (its log line; the tracker is then not
 * configured) and answered BVGEO_ERR_INVALID_ARGUMENT. A NULL or non-UTF-8 app_id
 * changes nothing. */
BVGEO_C_API bvgeo_status bvgeo_configure(bvgeo_tracker *tracker, const char *app_id, int trigger_mode,
                                         int environment);

/* Replaces the base URLs of one environment; takes effect at the next configure.
 * NULL keeps that URL as it is. Each must be an http:// or https:// URL with a host,
 * ending in "/" (BVGEO_ERR_INVALID_ARGUMENT otherwise); api_base should end in
 * "/api/v1/app/". Until they are set, an environment's URLs name placeholder hosts
 * that never resolve: configure says so once (console and log), and a host whose
 * name did not resolve is not looked up again for a while (30 s, doubling). The
 * app id goes into the URLs percent-encoded, as one path segment. */
BVGEO_C_API bvgeo_status bvgeo_set_environment_urls(bvgeo_tracker *tracker, int environment, const char *api_base,
                                                    const char *assets_base);
/* The current base URLs of one environment; either pointer may be NULL. */
BVGEO_C_API bvgeo_status bvgeo_get_environment_urls(bvgeo_tracker *tracker, int environment, char **api_base,
                                                    char **assets_base);

#define BVGEO_PARAMETERS_VERSION 1

/* The seven options of BVGeoTracker::setParameters. */
typedef struct bvgeo_parameters {
    unsigned int version;          /* BVGEO_PARAMETERS_VERSION */
    double accuracy;               /* metres >= 0, or BVGEO_ACCURACY_BEST */
    double distance_filter;        /* metres >= 0, or BVGEO_DISTANCE_FILTER_NONE */
    int64_t cache_expiration;      /* seconds >= 0 */
    double zone_interval;          /* degrees, > 0 and <= 180 */
    int64_t linger_time;           /* seconds >= 0 */
    int64_t max_linger_time;       /* seconds >= 0 */
    double request_retry_interval; /* seconds > 0 */
} bvgeo_parameters;

/* Fills `parameters` with the tracker's starting configuration (10 m, 30 m,
 * 3600 s, 0.2 degrees, 300 s, 7200 s, 30 s), so that setting one field and passing
 * the record on changes that one only. After an earlier bvgeo_set_parameters,
 * start from bvgeo_get_parameters instead. (The C++ setParameters() keeps its own
 * argument defaults: 100 m, 50 m, 120 s.) */
BVGEO_C_API void bvgeo_parameters_init(bvgeo_parameters *parameters);
/* BVGeoTracker::setParameters. Any value out of range: nothing changes. */
BVGEO_C_API bvgeo_status bvgeo_set_parameters(bvgeo_tracker *tracker, const bvgeo_parameters *parameters);
/* The seven values as they are now (the facade's config). */
BVGEO_C_API bvgeo_status bvgeo_get_parameters(bvgeo_tracker *tracker, bvgeo_parameters *parameters);

#define BVGEO_EXTENDED_OPTIONS_VERSION 2

/* ExtendedOptions: what goes beyond the configuration. Set before bvgeo_start.
 * Structs of an earlier version are still taken: set reads only the fields that
 * version has (the others keep their defaults), and get fills only those when the
 * struct's version says so (bvgeo_extended_options_init sets the current one). */
typedef struct bvgeo_extended_options {
    unsigned int version;           /* BVGEO_EXTENDED_OPTIONS_VERSION */
    int durable_delivery;           /* 0 or 1: reports kept in BVGOutbox.sqlite until the server took them */
    uint64_t outbox_max_reports;    /* at most this many reports in the outbox */
    int64_t outbox_max_age_seconds; /* >= 0: none older than this */
    uint64_t max_log_rows;          /* 0: no limit */
    uint64_t max_location_rows;     /* 0: no limit */
    uint64_t fence_listing_limit;   /* 0: no limit */
    /* Version 2. Zone cache: fences without a network. */
    uint64_t zone_cache;            /* zone files of up to this many zones kept in BVGZoneCache/ beside the
                                       database, answering when a download fails; 0: none */
    double prefetch_distance;       /* metres >= 0, with zone_cache: fetch the neighbouring cells while a
                                       position is this close to its cell's edge or corner; 0: none */
    /* Version 2, continued. Robust triggers (TriggerFilterOptions in C++): enter and exit with
     * hysteresis, the fixes' accuracy, confirmation and outlier rejection. */
    int robust_triggers;                /* 0 or 1 */
    double exit_buffer_metres;          /* >= 0: leave a fence only this far beyond its rim */
    double accuracy_cap_metres;         /* >= 0: a fix's accuracy counts up to this */
    double max_accuracy_metres;         /* > 0: a less accurate fix changes no fence */
    double assumed_accuracy_metres;     /* >= 0: the accuracy of a fix that gives none */
    double hdop_metres;                 /* > 0: metres of accuracy per unit of HDOP */
    double max_speed;                   /* > 0, metres per second: a fix implying more changes no fence */
    int32_t confirm_fixes;              /* 1..1000 fixes in a row on the new side */
    int64_t confirm_seconds;            /* 0..86400: ... spanning at least this long */
    int64_t minimum_dwell_seconds;      /* 0..86400: a fence keeps each state at least this long */
    int use_two_dimensional_fixes;      /* 0 or 1: let 2D fixes change fences */
    /* Version 2, continued. Polygon fences. */
    int polygon_fences;                 /* 0 or 1: a fence's "geometry" decides containment */
} bvgeo_extended_options;

/* Fills `options` with the defaults, which keep the library's standard behaviour. */
BVGEO_C_API void bvgeo_extended_options_init(bvgeo_extended_options *options);
/* A version-1 struct (without the version-2 fields) is accepted: those options
 * then take their defaults. */
BVGEO_C_API bvgeo_status bvgeo_set_extended_options(bvgeo_tracker *tracker, const bvgeo_extended_options *options);
/* Fills the fields the struct's version has: set `version` first (init does). */
BVGEO_C_API bvgeo_status bvgeo_get_extended_options(bvgeo_tracker *tracker, bvgeo_extended_options *options);

/* Zone cache: BVGeoTracker::preloadZones. Fills the cache from a directory written
 * by `bvgeo zones build --out DIR` (DIR or DIR/<app id>/zones), after a successful
 * bvgeo_configure and with zone_cache > 0; files that do not fit (name, grid, app id,
 * bad JSON, already cached, cache full) are skipped, each with a log line. `loaded`
 * and `skipped` (either may be NULL) tell how many. BVGEO_ERR_NOT_CONFIGURED before
 * a configure; BVGEO_ERR_STATE with the zone cache off; BVGEO_ERR_IO when the
 * directory holds nothing for this app id (bvgeo_last_error() says why). */
BVGEO_C_API bvgeo_status bvgeo_preload_zones(bvgeo_tracker *tracker, const char *directory, size_t *loaded,
                                             size_t *skipped);

/* ---- Triggers ------------------------------------------------------------------- */

/* Called once per trigger on the main queue (see Threads above), after the trigger
 * was stored, when the trigger mode is not REMOTE_ONLY. `trigger` and its text are
 * valid during the call only. The callback may call any function of this API but
 * bvgeo_close and the main-queue and virtual-time functions. */
typedef void (*bvgeo_trigger_callback)(bvgeo_tracker *tracker, const bvgeo_trigger *trigger, void *user_data);

/* Registers the callback (BVGeoTracker::setTriggerDelegate); NULL removes it. A
 * call already running on the main queue may still finish with the old one. */
BVGEO_C_API bvgeo_status bvgeo_set_trigger_callback(bvgeo_tracker *tracker, bvgeo_trigger_callback callback,
                                                    void *user_data);

/* Every stored trigger, oldest first. On success *triggers is NULL when *count is
 * 0; free a list with bvgeo_free_triggers. */
BVGEO_C_API bvgeo_status bvgeo_list_triggers(bvgeo_tracker *tracker, bvgeo_trigger **triggers, size_t *count);
BVGEO_C_API void bvgeo_free_triggers(bvgeo_trigger *triggers, size_t count);

/* ---- Running ---------------------------------------------------------------------- */

/* BVGeoTracker::start. Before a successful configure the facade logs "BVGeoTracker
 * is not configured! Please configure before calling start()", nothing starts, and
 * the answer is BVGEO_ERR_NOT_CONFIGURED. */
BVGEO_C_API bvgeo_status bvgeo_start(bvgeo_tracker *tracker);
/* BVGeoTracker::stop. Reports already queued keep being sent. */
BVGEO_C_API bvgeo_status bvgeo_stop(bvgeo_tracker *tracker);

/* BVGeoTracker::reset: archives the database as NAME.sqlite beside it and starts
 * afresh (tracking stopped, persisted settings cleared: a new device id). Failures
 * are BVGEO_ERR_RESET_* with the facade's text in bvgeo_last_error(). */
BVGEO_C_API bvgeo_status bvgeo_reset(bvgeo_tracker *tracker, const char *name);

/* BVGeoTracker::getDeviceId (made and stored on first use) and getAppId. */
BVGEO_C_API bvgeo_status bvgeo_get_device_id(bvgeo_tracker *tracker, char **device_id);
BVGEO_C_API bvgeo_status bvgeo_get_app_id(bvgeo_tracker *tracker, char **app_id);
/* 1 after a configure that was accepted, else 0. */
BVGEO_C_API bvgeo_status bvgeo_is_configured(bvgeo_tracker *tracker, int *configured);

/* BVGeoTracker::log: a line of the host's own in the library's log (category CLIENT). */
BVGEO_C_API bvgeo_status bvgeo_log(bvgeo_tracker *tracker, const char *message);

/* Trigger reports waiting in the request queue (first try and retries). Right
 * after bvgeo_push_location the fix may not be decided yet (its zone may still be
 * downloading): bvgeo_settle first to count its reports too. */
BVGEO_C_API bvgeo_status bvgeo_pending_reports(bvgeo_tracker *tracker, size_t *count);

/* Waits until every fix pushed before the call is decided: zone answers in,
 * trigger decisions made, callbacks run (see bvgeo_close for where), and their
 * reports sent or waiting in the request queue. In virtual time it runs all of it
 * on the calling thread without moving the clock. timeout_seconds: real time,
 * >= 0. BVGEO_ERR_TIMEOUT when the library was still busy at the deadline.
 * Not from inside a callback (BVGEO_ERR_STATE). */
BVGEO_C_API bvgeo_status bvgeo_settle(bvgeo_tracker *tracker, double timeout_seconds);
/* The database file's path. */
BVGEO_C_API bvgeo_status bvgeo_get_database_path(bvgeo_tracker *tracker, char **path);

/* ---- Positions from the host's own location source --------------------------------- */

enum {
    /* As a device's location service would: standard delivery honours the distance
     * filter the library set; significant-change delivery gets the fix when the
     * device moved 500 m since the last one (the first fix always counts). */
    BVGEO_FIX_AUTOMATIC = 0,
    /* A standard location update only (distance filter honoured). */
    BVGEO_FIX_STANDARD = 1,
    /* A significant-change update only, delivered as it is: the host's source has
     * already judged the move significant. */
    BVGEO_FIX_SIGNIFICANT_CHANGE = 2
};

/* Hands one fix to the trackers, on the calling thread (calls from several threads
 * may run at once; in virtual-time mode they are taken one at a time). latitude -90..90, longitude -180..180 degrees;
 * accuracy: horizontal accuracy in metres, negative when unknown; time: seconds
 * since 1970 when the fix was taken, 0 for the library clock's now (a value of 1e11
 * or more can only be milliseconds and is refused); kind: a BVGEO_FIX_* value.
 * `received` (may be NULL) tells how many trackers took the fix: 0 when tracking is
 * stopped or the fix was filtered. In virtual time the first fix starts the clock
 * (unless start_time was given), and every later one first moves it to `time`,
 * firing the timers due on the way; a fix older than the clock is refused
 * (BVGEO_ERR_INVALID_ARGUMENT), since the clock never moves back. Everything the
 * fix started has run when this returns. Elsewhere the fix is delivered as it is and
 * may be settled for with bvgeo_settle. */
BVGEO_C_API bvgeo_status bvgeo_push_location(bvgeo_tracker *tracker, double latitude, double longitude,
                                             double accuracy, double time, int kind, int *received);

enum { BVGEO_FIX_MODE_UNKNOWN = 0, BVGEO_FIX_MODE_NO_FIX = 1, BVGEO_FIX_MODE_2D = 2, BVGEO_FIX_MODE_3D = 3 };

#define BVGEO_FIX_VERSION 1

/* One fix with what the source said of its quality; negative (or
 * BVGEO_FIX_MODE_UNKNOWN) where it said nothing, which the library treats as
 * unknown, never as perfect. */
typedef struct bvgeo_fix {
    unsigned int version; /* BVGEO_FIX_VERSION */
    double latitude;      /* -90..90 */
    double longitude;     /* -180..180 */
    double accuracy;      /* metres (radius of about 68% confidence) */
    double time;          /* seconds since 1970, 0 for the library clock's now */
    double speed;         /* metres per second over ground */
    double hdop;          /* horizontal dilution of precision */
    int satellites_used;
    int mode;             /* BVGEO_FIX_MODE_* */
} bvgeo_fix;

/* Fills `fix` with "unknown" everywhere but the version, latitude and longitude 0. */
BVGEO_C_API void bvgeo_fix_init(bvgeo_fix *fix);
/* bvgeo_push_location with the fix's quality. */
BVGEO_C_API bvgeo_status bvgeo_push_fix(bvgeo_tracker *tracker, const bvgeo_fix *fix, int kind, int *received);

/* ---- Main queue ---------------------------------------------------------------------- */

/* BVGEO_MAIN_QUEUE_HOST: serves the main queue on the calling thread until
 * bvgeo_main_queue_stop (from any thread, or from a callback) or bvgeo_close.
 * BVGEO_ERR_STATE in other modes, or while another thread serves it. */
BVGEO_C_API bvgeo_status bvgeo_main_queue_run(bvgeo_tracker *tracker);
BVGEO_C_API bvgeo_status bvgeo_main_queue_stop(bvgeo_tracker *tracker);
/* BVGEO_MAIN_QUEUE_HOST: runs the work posted so far and the timers due now, on the
 * calling thread, and returns (for a host with a loop of its own; call it often).
 * BVGEO_MAIN_QUEUE_VIRTUAL_TIME: runs everything pending without moving the clock
 * (bvgeo_virtual_settle). `ran` (may be NULL): how many items ran. */
BVGEO_C_API bvgeo_status bvgeo_main_queue_run_pending(bvgeo_tracker *tracker, size_t *ran);

/* ---- Virtual time (BVGEO_MAIN_QUEUE_VIRTUAL_TIME only; BVGEO_ERR_STATE otherwise) --- */

/* The clock, seconds since 1970. */
BVGEO_C_API bvgeo_status bvgeo_virtual_now(bvgeo_tracker *tracker, double *now);
/* Fires every timer due up to `time`, in order, each at its due time, running what
 * it started (report sending, retries); then leaves the clock at `time`. The clock
 * never moves backwards. */
BVGEO_C_API bvgeo_status bvgeo_virtual_advance_to(bvgeo_tracker *tracker, double time);
/* Runs queued work and waits for HTTP transfers until nothing is left.
 * BVGEO_ERR_TIMEOUT when the library kept busy past its bounds. */
BVGEO_C_API bvgeo_status bvgeo_virtual_settle(bvgeo_tracker *tracker);
/* The due time of the earliest timer: *has_timer 1 and *due set, or *has_timer 0. */
BVGEO_C_API bvgeo_status bvgeo_virtual_next_timer(bvgeo_tracker *tracker, int *has_timer, double *due);

/* ---- Debug console -------------------------------------------------------------------- */

#define BVGEO_CONSOLE_OPTIONS_VERSION 1

typedef struct bvgeo_console_options {
    unsigned int version;              /* BVGEO_CONSOLE_OPTIONS_VERSION */
    int port;                          /* 0..65535; 0: a free port */
    const char *tile_url_template;     /* NULL or "": offline outlines; else ".../{z}/{x}/{y}.png" */
    double action_timeout_seconds;     /* > 0: how long Restart waits for the main queue */
} bvgeo_console_options;

BVGEO_C_API void bvgeo_console_options_init(bvgeo_console_options *options);
/* Serves the map and log pages on 127.0.0.1 (DebugConsole). `options` may be NULL.
 * BVGEO_ERR_IO when the port cannot be bound, BVGEO_ERR_STATE when one runs. Its
 * actions run on the main queue, which must be served for them to complete. */
BVGEO_C_API bvgeo_status bvgeo_console_start(bvgeo_tracker *tracker, const bvgeo_console_options *options);
BVGEO_C_API bvgeo_status bvgeo_console_stop(bvgeo_tracker *tracker);
/* "http://127.0.0.1:PORT/", or "" when no console runs. */
BVGEO_C_API bvgeo_status bvgeo_console_url(bvgeo_tracker *tracker, char **url);

#ifdef __cplusplus
}
#endif

#endif /* BVGEO_H */
