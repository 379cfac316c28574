"""The C API (include/bvgeo/bvgeo.h) as ctypes sees it: the library, its structs
and the prototype of every function. Internal to the package.

The library is looked for, in this order: $BVGEO_LIBRARY; libbvgeo.so.1 beside
this file (a package staged or installed with the library in it); where
`cmake --install` put the library (recorded in _location.py at install time); and
the system's library path (Debian's libbvgeo1, ld.so.conf, LD_LIBRARY_PATH)."""

import ctypes
import os
from pathlib import Path

# bvgeo_status
OK = 0
ERR_INVALID_ARGUMENT = 1
ERR_STATE = 2
ERR_NOT_CONFIGURED = 3
ERR_TIMEOUT = 4
ERR_IO = 5
ERR_INTERNAL = 6
ERR_REPORTS_DROPPED = 7
ERR_RESET_ARCHIVE_EXISTS = 1000
ERR_RESET_NAME_MANDATORY = 1001
ERR_RESET_NAME_INVALID = 1002

OPEN_OPTIONS_VERSION = 1
PARAMETERS_VERSION = 1
EXTENDED_OPTIONS_VERSION = 2
FIX_VERSION = 1
CONSOLE_OPTIONS_VERSION = 1


class Trigger(ctypes.Structure):
    _fields_ = [
        ("device_id", ctypes.c_char_p),
        ("event", ctypes.c_char_p),
        ("type", ctypes.c_int),
        ("timestamp", ctypes.c_int64),
        ("fence_id", ctypes.c_char_p),
        ("fence_name", ctypes.c_char_p),
        ("location_event", ctypes.c_char_p),
        ("location_event_type", ctypes.c_int),
    ]


ConsoleCallback = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)
TriggerCallback = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(Trigger), ctypes.c_void_p)


class OpenOptions(ctypes.Structure):
    _fields_ = [
        ("version", ctypes.c_uint),
        ("documents_directory", ctypes.c_char_p),
        ("main_queue", ctypes.c_int),
        ("start_time", ctypes.c_double),
        ("console", ConsoleCallback),
        ("console_user_data", ctypes.c_void_p),
    ]


class Parameters(ctypes.Structure):
    _fields_ = [
        ("version", ctypes.c_uint),
        ("accuracy", ctypes.c_double),
        ("distance_filter", ctypes.c_double),
        ("cache_expiration", ctypes.c_int64),
        ("zone_interval", ctypes.c_double),
        ("linger_time", ctypes.c_int64),
        ("max_linger_time", ctypes.c_int64),
        ("request_retry_interval", ctypes.c_double),
    ]


class ExtendedOptions(ctypes.Structure):
    _fields_ = [
        ("version", ctypes.c_uint),
        ("durable_delivery", ctypes.c_int),
        ("outbox_max_reports", ctypes.c_uint64),
        ("outbox_max_age_seconds", ctypes.c_int64),
        ("max_log_rows", ctypes.c_uint64),
        ("max_location_rows", ctypes.c_uint64),
        ("fence_listing_limit", ctypes.c_uint64),
        # Version 2: zone cache.
        ("zone_cache", ctypes.c_uint64),
        ("prefetch_distance", ctypes.c_double),
        # Version 2: robust triggers.
        ("robust_triggers", ctypes.c_int),
        ("exit_buffer_metres", ctypes.c_double),
        ("accuracy_cap_metres", ctypes.c_double),
        ("max_accuracy_metres", ctypes.c_double),
        ("assumed_accuracy_metres", ctypes.c_double),
        ("hdop_metres", ctypes.c_double),
        ("max_speed", ctypes.c_double),
        ("confirm_fixes", ctypes.c_int32),
        ("confirm_seconds", ctypes.c_int64),
        ("minimum_dwell_seconds", ctypes.c_int64),
        ("use_two_dimensional_fixes", ctypes.c_int),
        # Version 2: polygon fences.
        ("polygon_fences", ctypes.c_int),
    ]


class Fix(ctypes.Structure):
    _fields_ = [
        ("version", ctypes.c_uint),
        ("latitude", ctypes.c_double),
        ("longitude", ctypes.c_double),
        ("accuracy", ctypes.c_double),
        ("time", ctypes.c_double),
        ("speed", ctypes.c_double),
        ("hdop", ctypes.c_double),
        ("satellites_used", ctypes.c_int),
        ("mode", ctypes.c_int),
    ]


class ConsoleOptions(ctypes.Structure):
    _fields_ = [
        ("version", ctypes.c_uint),
        ("port", ctypes.c_int),
        ("tile_url_template", ctypes.c_char_p),
        ("action_timeout_seconds", ctypes.c_double),
    ]


def _candidates():
    """Where libbvgeo.so may be, most specific first."""
    explicit = os.environ.get("BVGEO_LIBRARY")
    if explicit:
        yield explicit
        return
    here = Path(__file__).resolve().parent
    beside = here / "libbvgeo.so.1"
    if beside.exists():
        yield str(beside)
    try:
        from ._location import LIBRARY  # written by `cmake --install`
    except ImportError:
        LIBRARY = None
    if LIBRARY and Path(LIBRARY).exists():
        yield LIBRARY
    yield "libbvgeo.so.1"


def _load():
    errors = []
    for candidate in _candidates():
        try:
            return ctypes.CDLL(candidate)
        except OSError as error:
            errors.append(f"{candidate}: {error}")
    raise ImportError("bvgeo: cannot load libbvgeo.so (set BVGEO_LIBRARY to its path): " + "; ".join(errors))


lib = _load()

_P = ctypes.c_void_p
_S = ctypes.c_int  # bvgeo_status
_TEXT = ctypes.c_char_p
_OUT_TEXT = ctypes.POINTER(ctypes.c_void_p)  # char **, freed with bvgeo_free


def _proto(name, result, *arguments):
    function = getattr(lib, name)
    function.restype = result
    function.argtypes = list(arguments)
    return function


bvgeo_version = _proto("bvgeo_version", ctypes.c_char_p)
bvgeo_status_text = _proto("bvgeo_status_text", ctypes.c_char_p, ctypes.c_int)
bvgeo_last_error = _proto("bvgeo_last_error", ctypes.c_char_p)
bvgeo_free = _proto("bvgeo_free", None, ctypes.c_void_p)

bvgeo_open_options_init = _proto("bvgeo_open_options_init", None, ctypes.POINTER(OpenOptions))
bvgeo_open = _proto("bvgeo_open", _S, ctypes.POINTER(OpenOptions), ctypes.POINTER(ctypes.c_void_p))
bvgeo_close = _proto("bvgeo_close", _S, _P)
bvgeo_close_within = _proto("bvgeo_close_within", _S, _P, ctypes.c_double, ctypes.POINTER(ctypes.c_size_t),
                            ctypes.POINTER(ctypes.c_size_t))
bvgeo_settle = _proto("bvgeo_settle", _S, _P, ctypes.c_double)

bvgeo_configure = _proto("bvgeo_configure", _S, _P, _TEXT, ctypes.c_int, ctypes.c_int)
bvgeo_set_environment_urls = _proto("bvgeo_set_environment_urls", _S, _P, ctypes.c_int, _TEXT, _TEXT)
bvgeo_get_environment_urls = _proto("bvgeo_get_environment_urls", _S, _P, ctypes.c_int, _OUT_TEXT, _OUT_TEXT)
bvgeo_parameters_init = _proto("bvgeo_parameters_init", None, ctypes.POINTER(Parameters))
bvgeo_set_parameters = _proto("bvgeo_set_parameters", _S, _P, ctypes.POINTER(Parameters))
bvgeo_get_parameters = _proto("bvgeo_get_parameters", _S, _P, ctypes.POINTER(Parameters))
bvgeo_extended_options_init = _proto("bvgeo_extended_options_init", None, ctypes.POINTER(ExtendedOptions))
bvgeo_set_extended_options = _proto("bvgeo_set_extended_options", _S, _P, ctypes.POINTER(ExtendedOptions))
bvgeo_get_extended_options = _proto("bvgeo_get_extended_options", _S, _P, ctypes.POINTER(ExtendedOptions))
bvgeo_preload_zones = _proto("bvgeo_preload_zones", _S, _P, _TEXT, ctypes.POINTER(ctypes.c_size_t),
                             ctypes.POINTER(ctypes.c_size_t))

bvgeo_set_trigger_callback = _proto("bvgeo_set_trigger_callback", _S, _P, TriggerCallback, ctypes.c_void_p)
bvgeo_list_triggers = _proto("bvgeo_list_triggers", _S, _P, ctypes.POINTER(ctypes.POINTER(Trigger)),
                             ctypes.POINTER(ctypes.c_size_t))
bvgeo_free_triggers = _proto("bvgeo_free_triggers", None, ctypes.POINTER(Trigger), ctypes.c_size_t)

bvgeo_start = _proto("bvgeo_start", _S, _P)
bvgeo_stop = _proto("bvgeo_stop", _S, _P)
bvgeo_reset = _proto("bvgeo_reset", _S, _P, _TEXT)
bvgeo_get_device_id = _proto("bvgeo_get_device_id", _S, _P, _OUT_TEXT)
bvgeo_get_app_id = _proto("bvgeo_get_app_id", _S, _P, _OUT_TEXT)
bvgeo_is_configured = _proto("bvgeo_is_configured", _S, _P, ctypes.POINTER(ctypes.c_int))
bvgeo_log = _proto("bvgeo_log", _S, _P, _TEXT)
bvgeo_pending_reports = _proto("bvgeo_pending_reports", _S, _P, ctypes.POINTER(ctypes.c_size_t))
bvgeo_get_database_path = _proto("bvgeo_get_database_path", _S, _P, _OUT_TEXT)

bvgeo_push_location = _proto("bvgeo_push_location", _S, _P, ctypes.c_double, ctypes.c_double, ctypes.c_double,
                             ctypes.c_double, ctypes.c_int, ctypes.POINTER(ctypes.c_int))
bvgeo_fix_init = _proto("bvgeo_fix_init", None, ctypes.POINTER(Fix))
bvgeo_push_fix = _proto("bvgeo_push_fix", _S, _P, ctypes.POINTER(Fix), ctypes.c_int, ctypes.POINTER(ctypes.c_int))

bvgeo_main_queue_run = _proto("bvgeo_main_queue_run", _S, _P)
bvgeo_main_queue_stop = _proto("bvgeo_main_queue_stop", _S, _P)
bvgeo_main_queue_run_pending = _proto("bvgeo_main_queue_run_pending", _S, _P, ctypes.POINTER(ctypes.c_size_t))

bvgeo_virtual_now = _proto("bvgeo_virtual_now", _S, _P, ctypes.POINTER(ctypes.c_double))
bvgeo_virtual_advance_to = _proto("bvgeo_virtual_advance_to", _S, _P, ctypes.c_double)
bvgeo_virtual_settle = _proto("bvgeo_virtual_settle", _S, _P)
bvgeo_virtual_next_timer = _proto("bvgeo_virtual_next_timer", _S, _P, ctypes.POINTER(ctypes.c_int),
                                  ctypes.POINTER(ctypes.c_double))

bvgeo_console_options_init = _proto("bvgeo_console_options_init", None, ctypes.POINTER(ConsoleOptions))
bvgeo_console_start = _proto("bvgeo_console_start", _S, _P, ctypes.POINTER(ConsoleOptions))
bvgeo_console_stop = _proto("bvgeo_console_stop", _S, _P)
bvgeo_console_url = _proto("bvgeo_console_url", _S, _P, _OUT_TEXT)


def take_text(pointer):
    """The text behind a char * the library handed over, freed."""
    if not pointer:
        return ""
    try:
        return ctypes.string_at(pointer).decode("utf-8", errors="replace")
    finally:
        bvgeo_free(pointer)


def last_error():
    return (bvgeo_last_error() or b"").decode("utf-8", errors="replace")
