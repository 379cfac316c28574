"""Tracker: the library's facade (BVGeoTracker) for Python, over the C API.

One tracker per process: opening one installs the platform the library runs on
(documents directory, main queue, location source); close() lets go of all the
library's state, after which another may be opened. Triggers reach the callable
set as `on_trigger` on the library's main queue: a thread of the library's own
(MainQueue.OWN_THREAD), the thread that calls run_main_queue() or run_pending()
(MainQueue.HOST), or the thread that moves virtual time (MainQueue.VIRTUAL_TIME).
A callback that raises is logged (Python logging "bvgeo" and the library's own
log), the library goes on, and the next call the host makes into the tracker
raises CallbackError with the callback's exception as its cause. Bad arguments
raise ValueError (InvalidArgumentError) and change nothing; failures raise a
BVGeoError.

Times are seconds since 1970 (int or float) or timezone-aware datetimes; a naive
datetime, or a number only milliseconds can be, is refused.
"""

import atexit
import ctypes
import datetime as _datetime
import logging
import math
import os
import threading
from typing import Callable, Optional, Tuple, Union

from . import _native as n
from .errors import (BVGeoError, CallbackError, InvalidArgumentError, NotConfiguredError, ResetError, StateError,
                     VirtualTimeError)
from .types import (CloseResult, Environment, ExtendedOptions, FixKind, FixMode, MainQueue, Parameters, Trigger,
                    TriggerMode)

Time = Union[int, float, _datetime.datetime]

log = logging.getLogger("bvgeo")
console_log = logging.getLogger("bvgeo.console")

_INT64 = (-(2 ** 63), 2 ** 63 - 1)
_UINT64 = (0, 2 ** 64 - 1)

# Robust triggers: the numeric fields ExtendedOptions shares with the C struct.
_ROBUST_TRIGGER_FIELDS = ("exit_buffer_metres", "accuracy_cap_metres", "max_accuracy_metres",
                          "assumed_accuracy_metres", "hdop_metres", "max_speed", "confirm_fixes", "confirm_seconds",
                          "minimum_dwell_seconds")
_ROBUST_TRIGGER_COUNTS = {"confirm_fixes": (-(2 ** 31), 2 ** 31 - 1), "confirm_seconds": _INT64,
                          "minimum_dwell_seconds": _INT64}


def _raise_for(status, what):
    if status == n.OK:
        return
    message = n.last_error() or f"{what}: {n.bvgeo_status_text(status).decode()}"
    if status == n.ERR_INVALID_ARGUMENT:
        raise InvalidArgumentError(message, status)
    if status == n.ERR_NOT_CONFIGURED:
        raise NotConfiguredError(message, status)
    if status == n.ERR_STATE:
        raise StateError(message, status)
    if status in (n.ERR_RESET_ARCHIVE_EXISTS, n.ERR_RESET_NAME_MANDATORY, n.ERR_RESET_NAME_INVALID):
        raise ResetError(message, status)
    if status == n.ERR_TIMEOUT:
        raise VirtualTimeError(message, status)
    raise BVGeoError(message, status)


def _text(value, name, optional=False):
    """str (UTF-8 encoded) or bytes (passed as they are, for the library to judge)."""
    if value is None and optional:
        return None
    if isinstance(value, str):
        try:
            value = value.encode("utf-8")
        except UnicodeEncodeError as error:
            raise InvalidArgumentError(f"{name} is not valid text: {error}", n.ERR_INVALID_ARGUMENT) from None
    elif not isinstance(value, bytes):
        raise TypeError(f"{name} must be str, not {type(value).__name__}")
    if b"\0" in value:
        # C text ends at the first NUL: the library would see less than was given.
        raise InvalidArgumentError(f"{name} contains a NUL character", n.ERR_INVALID_ARGUMENT)
    return value


def _integer(value, name, bounds=_INT64):
    if isinstance(value, bool) or not isinstance(value, int):
        raise TypeError(f"{name} must be an int, not {type(value).__name__}")
    if not bounds[0] <= value <= bounds[1]:
        raise InvalidArgumentError(f"{name} {value} is out of range", n.ERR_INVALID_ARGUMENT)
    return value


def _number(value, name):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise TypeError(f"{name} must be a number, not {type(value).__name__}")
    return float(value)


def _seconds(value, name):
    """Seconds since 1970 from an aware datetime or a number; None is 0 (now)."""
    if value is None:
        return 0.0
    if isinstance(value, _datetime.datetime):
        if value.tzinfo is None or value.tzinfo.utcoffset(value) is None:
            raise InvalidArgumentError(f"{name} is a naive datetime; give one with a timezone (e.g. timezone.utc)",
                                       n.ERR_INVALID_ARGUMENT)
        return value.timestamp()
    return _number(value, name)


def _trigger(c):
    def text(raw):
        return (raw or b"").decode("utf-8", errors="replace")
    return Trigger(device_id=text(c.device_id), event=text(c.event), timestamp=int(c.timestamp),
                   fence_id=text(c.fence_id), fence_name=text(c.fence_name),
                   location_event=text(c.location_event))


# Open trackers are kept alive until closed: the library holds pointers to their
# ctypes callbacks, which must not be collected while it may call them.
_open_trackers = set()


@atexit.register
def _close_at_exit():
    # A library thread must not call into an interpreter that is going away.
    for tracker in list(_open_trackers):
        try:
            tracker.close()
        except BVGeoError:
            log.exception("bvgeo: closing the tracker at exit failed")


class Tracker:
    """The process's bvgeo tracker. Usable as a context manager (closes on exit)."""

    def __init__(self, documents_directory: Optional[Union[str, "os.PathLike[str]"]] = None, *,
                 main_queue: MainQueue = MainQueue.OWN_THREAD, start_time: Optional[Time] = None,
                 console: Optional[Callable[[str], None]] = None) -> None:
        """documents_directory: where the database lives (default: $XDG_DATA_HOME/bvgeo,
        else ~/.local/share/bvgeo). main_queue: a MainQueue. start_time: virtual time
        only, the clock's start (seconds since 1970 or an aware datetime); None: the
        first pushed fix's time. console: a callable given each of the library's
        console lines (from any thread, maybe on several at once); default: the
        "bvgeo.console" logger at DEBUG level. Either may call the tracker (log,
        pending_reports, the getters and setters; not close, push_location nor the
        main-queue and virtual-time calls), and a line it causes on its own thread is
        not given to it again."""
        self._handle = None
        self._on_trigger = None
        self._console = console
        self._callback_error = None
        self._callback_lock = threading.Lock()
        # Made once and kept as long as the tracker: the library holds the pointers,
        # and the main queue may still be running one while the host swaps callables.
        self._trigger_thunk = n.TriggerCallback(self._deliver)
        self._console_thunk = n.ConsoleCallback(self._console_line)
        options = n.OpenOptions()
        n.bvgeo_open_options_init(ctypes.byref(options))
        options.documents_directory = _text(str(documents_directory), "documents_directory") \
            if documents_directory is not None else None
        options.main_queue = _integer(int(main_queue), "main_queue")
        options.start_time = _seconds(start_time, "start_time")
        options.console = self._console_thunk
        handle = ctypes.c_void_p()
        _raise_for(n.bvgeo_open(ctypes.byref(options), ctypes.byref(handle)), "open")
        self._handle = handle
        self._main_queue = MainQueue(main_queue)
        _open_trackers.add(self)

    # ---- lifecycle ----

    def close(self, timeout: float = 10.0) -> CloseResult:
        """Stops tracking, lets work in progress finish and sends the trigger reports
        still owed, for up to `timeout` seconds, then lets go of the library's state.
        Returns what was left owed (with durable delivery, kept in the outbox for the
        next start; otherwise lost, which is also logged). Idempotent: closing a
        closed tracker returns an empty CloseResult. Raises CallbackError afterwards
        when a callback raised and was not reported yet."""
        if self._handle is None:
            return CloseResult()
        timeout = _number(timeout, "timeout")
        owed, kept = ctypes.c_size_t(), ctypes.c_size_t()
        status = n.bvgeo_close_within(self._handle, timeout, ctypes.byref(owed), ctypes.byref(kept))
        if status not in (n.OK, n.ERR_REPORTS_DROPPED):
            _raise_for(status, "close")
        self._handle = None
        _open_trackers.discard(self)
        result = CloseResult(owed.value, kept.value)
        if result.reports_lost:
            log.warning("bvgeo: closed with %d trigger report(s) the server had not taken; they are lost",
                        result.reports_lost)
        self._raise_callback_error()
        return result

    def __enter__(self):
        return self

    def __exit__(self, exc_type, exc, traceback):
        if exc_type is None:
            self.close()
            return
        # Already unwinding: close, but let the host's own exception be the one seen.
        try:
            self.close()
        except BVGeoError:
            log.exception("bvgeo: closing the tracker while an exception unwinds")

    @property
    def closed(self) -> bool:
        return self._handle is None

    @property
    def main_queue(self) -> MainQueue:
        return self._main_queue

    def _h(self):
        if self._handle is None:
            raise StateError("the tracker is closed", n.ERR_STATE)
        return self._handle

    def _keep_callback_error(self, error):
        with self._callback_lock:
            if self._callback_error is None:
                self._callback_error = error

    def _raise_callback_error(self):
        with self._callback_lock:
            error, self._callback_error = self._callback_error, None
        if error is not None:
            raise CallbackError(f"a callback raised {type(error).__name__}: {error}", n.ERR_STATE) from error

    # ---- configuration ----

    def configure(self, app_id: str, trigger_mode: TriggerMode = TriggerMode.BOTH,
                  environment: Environment = Environment.PRODUCTION) -> None:
        """BVGeoTracker.configure. The environment defaults to PRODUCTION, as in C
        and C++ (and in replay()). A refused configuration (empty app_id, mode or
        environment out of range) leaves the tracker unconfigured, as the facade
        does, and raises ValueError. The app id is stored and logged as given and
        percent-encoded where it goes into a URL."""
        _raise_for(n.bvgeo_configure(self._h(), _text(app_id, "app_id"), _integer(int(trigger_mode), "trigger_mode"),
                                     _integer(int(environment), "environment")), "configure")

    def set_environment_urls(self, environment: Environment, api_base: Optional[str] = None,
                             assets_base: Optional[str] = None) -> None:
        """Replaces the base URLs of one environment (None keeps one); takes effect at
        the next configure. Each must be http(s), name a host and end in "/"."""
        _raise_for(n.bvgeo_set_environment_urls(self._h(), _integer(int(environment), "environment"),
                                                _text(api_base, "api_base", optional=True),
                                                _text(assets_base, "assets_base", optional=True)),
                   "set_environment_urls")

    def environment_urls(self, environment: Environment) -> Tuple[str, str]:
        """(api_base, assets_base) of one environment."""
        api, assets = ctypes.c_void_p(), ctypes.c_void_p()
        _raise_for(n.bvgeo_get_environment_urls(self._h(), _integer(int(environment), "environment"),
                                                ctypes.byref(api), ctypes.byref(assets)), "environment_urls")
        return n.take_text(api), n.take_text(assets)

    def set_parameters(self, parameters: Optional[Parameters] = None, **values) -> None:
        """BVGeoTracker.setParameters, with a Parameters or its fields as keywords.
        Keywords alone change those fields of the current parameters and nothing
        else; with a Parameters, keywords override its fields."""
        p = parameters if parameters is not None else self.parameters
        if values:
            unknown = set(values) - set(Parameters.__dataclass_fields__)
            if unknown:
                raise TypeError(f"unknown parameters: {', '.join(sorted(unknown))}")
            p = Parameters(**{**p.__dict__, **values})
        c = n.Parameters()
        n.bvgeo_parameters_init(ctypes.byref(c))
        c.accuracy = _number(p.accuracy, "accuracy")
        c.distance_filter = _number(p.distance_filter, "distance_filter")
        c.cache_expiration = _integer(p.cache_expiration, "cache_expiration")
        c.zone_interval = _number(p.zone_interval, "zone_interval")
        c.linger_time = _integer(p.linger_time, "linger_time")
        c.max_linger_time = _integer(p.max_linger_time, "max_linger_time")
        c.request_retry_interval = _number(p.request_retry_interval, "request_retry_interval")
        _raise_for(n.bvgeo_set_parameters(self._h(), ctypes.byref(c)), "set_parameters")

    @property
    def parameters(self) -> Parameters:
        """The seven values as they are now."""
        c = n.Parameters()
        n.bvgeo_parameters_init(ctypes.byref(c))
        _raise_for(n.bvgeo_get_parameters(self._h(), ctypes.byref(c)), "parameters")
        return Parameters(c.accuracy, c.distance_filter, c.cache_expiration, c.zone_interval, c.linger_time,
                          c.max_linger_time, c.request_retry_interval)

    @property
    def extended_options(self) -> ExtendedOptions:
        c = n.ExtendedOptions()
        n.bvgeo_extended_options_init(ctypes.byref(c))
        _raise_for(n.bvgeo_get_extended_options(self._h(), ctypes.byref(c)), "extended_options")
        options = ExtendedOptions(bool(c.durable_delivery), c.outbox_max_reports, c.outbox_max_age_seconds,
                                  c.max_log_rows, c.max_location_rows, c.fence_listing_limit,
                                  zone_cache=c.zone_cache, prefetch_distance=c.prefetch_distance)
        # Robust triggers.
        for name in _ROBUST_TRIGGER_FIELDS:
            setattr(options, name, getattr(c, name))
        options.robust_triggers = bool(c.robust_triggers)
        options.use_two_dimensional_fixes = bool(c.use_two_dimensional_fixes)
        # Polygon fences.
        options.polygon_fences = bool(c.polygon_fences)
        return options

    @extended_options.setter
    def extended_options(self, options: ExtendedOptions) -> None:
        if not isinstance(options, ExtendedOptions):
            raise TypeError("extended_options must be a bvgeo.ExtendedOptions")
        c = n.ExtendedOptions()
        n.bvgeo_extended_options_init(ctypes.byref(c))
        c.durable_delivery = 1 if options.durable_delivery else 0
        c.outbox_max_reports = _integer(options.outbox_max_reports, "outbox_max_reports", _UINT64)
        c.outbox_max_age_seconds = _integer(options.outbox_max_age_seconds, "outbox_max_age_seconds")
        c.max_log_rows = _integer(options.max_log_rows, "max_log_rows", _UINT64)
        c.max_location_rows = _integer(options.max_location_rows, "max_location_rows", _UINT64)
        c.fence_listing_limit = _integer(options.fence_listing_limit, "fence_listing_limit", _UINT64)
        c.zone_cache = _integer(options.zone_cache, "zone_cache", _UINT64)
        c.prefetch_distance = _number(options.prefetch_distance, "prefetch_distance")
        # Robust triggers.
        c.robust_triggers = 1 if options.robust_triggers else 0
        c.use_two_dimensional_fixes = 1 if options.use_two_dimensional_fixes else 0
        for name in _ROBUST_TRIGGER_FIELDS:
            value = getattr(options, name)
            setattr(c, name, _integer(value, name, _ROBUST_TRIGGER_COUNTS[name]) if name in _ROBUST_TRIGGER_COUNTS
                    else _number(value, name))
        # Polygon fences.
        c.polygon_fences = 1 if options.polygon_fences else 0
        _raise_for(n.bvgeo_set_extended_options(self._h(), ctypes.byref(c)), "extended_options")

    def preload_zones(self, directory):
        """BVGeoTracker.preloadZones: fills the zone cache from a directory written by
        `bvgeo zones build --out DIR` (DIR or DIR/<app id>/zones), after configure()
        and with extended_options.zone_cache > 0. Returns (loaded, skipped); each
        skipped file has a ZONE log line. Raises StateError before configure or with
        the cache off, BVGeoError when the directory holds nothing for this app id."""
        loaded, skipped = ctypes.c_size_t(), ctypes.c_size_t()
        _raise_for(n.bvgeo_preload_zones(self._h(), _text(str(directory), "directory"), ctypes.byref(loaded),
                                         ctypes.byref(skipped)), "preload_zones")
        return loaded.value, skipped.value

    # ---- triggers ----

    @property
    def on_trigger(self) -> Optional[Callable[[Trigger], None]]:
        return self._on_trigger

    @on_trigger.setter
    def on_trigger(self, callback: Optional[Callable[[Trigger], None]]) -> None:
        """A callable taking a Trigger, or None."""
        if callback is not None and not callable(callback):
            raise TypeError("on_trigger must be callable or None")
        thunk = self._trigger_thunk if callback is not None else n.TriggerCallback()
        self._on_trigger = callback
        _raise_for(n.bvgeo_set_trigger_callback(self._h(), thunk, None), "on_trigger")

    def _deliver(self, _tracker, trigger, _user):
        callback = self._on_trigger
        if callback is None:
            return
        try:
            callback(_trigger(trigger.contents))
        except BaseException as error:  # noqa: B036 - nothing may unwind into C
            log.exception("bvgeo: the trigger callback raised; the library goes on")
            self._keep_callback_error(error)
            handle = self._handle
            if handle is not None:
                line = f"Python trigger callback raised {type(error).__name__}: {error}"
                n.bvgeo_log(handle, line.encode("utf-8", errors="replace"))

    def list_triggers(self) -> "list[Trigger]":
        """Every stored trigger, oldest first."""
        array = ctypes.POINTER(n.Trigger)()
        count = ctypes.c_size_t()
        _raise_for(n.bvgeo_list_triggers(self._h(), ctypes.byref(array), ctypes.byref(count)), "list_triggers")
        try:
            return [_trigger(array[i]) for i in range(count.value)]
        finally:
            n.bvgeo_free_triggers(array, count)

    # ---- running ----

    def start(self) -> bool:
        """BVGeoTracker.start; returns True. Before an accepted configure() it raises
        NotConfiguredError (a StateError), after the facade's log line, and nothing
        starts."""
        _raise_for(n.bvgeo_start(self._h()), "start")
        return True

    def stop(self) -> None:
        _raise_for(n.bvgeo_stop(self._h()), "stop")

    def reset(self, name: str) -> None:
        """Archives the database as NAME.sqlite beside it and starts afresh (tracking
        stopped, a new device id). ResetError with code 1000, 1001 or 1002 when
        refused."""
        _raise_for(n.bvgeo_reset(self._h(), _text(name, "name")), "reset")

    @property
    def device_id(self) -> str:
        out = ctypes.c_void_p()
        _raise_for(n.bvgeo_get_device_id(self._h(), ctypes.byref(out)), "device_id")
        return n.take_text(out)

    @property
    def app_id(self) -> str:
        out = ctypes.c_void_p()
        _raise_for(n.bvgeo_get_app_id(self._h(), ctypes.byref(out)), "app_id")
        return n.take_text(out)

    @property
    def is_configured(self) -> bool:
        out = ctypes.c_int()
        _raise_for(n.bvgeo_is_configured(self._h(), ctypes.byref(out)), "is_configured")
        return bool(out.value)

    def log(self, message: str) -> None:
        """A line of the host's own in the library's log (category CLIENT)."""
        _raise_for(n.bvgeo_log(self._h(), _text(message, "message")), "log")

    @property
    def pending_reports(self) -> int:
        """Trigger reports waiting in the request queue."""
        out = ctypes.c_size_t()
        _raise_for(n.bvgeo_pending_reports(self._h(), ctypes.byref(out)), "pending_reports")
        return out.value

    @property
    def database_path(self) -> str:
        out = ctypes.c_void_p()
        _raise_for(n.bvgeo_get_database_path(self._h(), ctypes.byref(out)), "database_path")
        return n.take_text(out)

    # ---- positions ----

    def push_location(self, latitude: float, longitude: float, accuracy: float = -1.0, time: Optional[Time] = None,
                      kind: FixKind = FixKind.AUTOMATIC, *, hdop: float = -1.0, speed: float = -1.0,
                      satellites_used: int = -1, mode: FixMode = FixMode.UNKNOWN) -> int:
        """One fix from the host's own location source, in bvgeo_push_location's
        order: degrees, horizontal accuracy in metres (negative: unknown), the time
        the fix was taken (seconds since 1970 or an aware datetime; None: the library
        clock's now), a FixKind. Returns how many trackers took it (0: stopped or
        filtered). In virtual time the first fix starts the clock unless start_time
        was given, a fix older than the clock raises ValueError, and everything the
        fix started has run, callbacks included, when this returns. hdop, speed
        (m/s), satellites_used and mode (FixMode) tell more of the fix's quality
        where the source knows it (bvgeo_push_fix); negative (or UNKNOWN) is unknown."""
        received = ctypes.c_int()
        if hdop == -1.0 and speed == -1.0 and satellites_used == -1 and mode == FixMode.UNKNOWN:
            _raise_for(n.bvgeo_push_location(self._h(), _number(latitude, "latitude"), _number(longitude, "longitude"),
                                             _number(accuracy, "accuracy"), _seconds(time, "time"),
                                             _integer(int(kind), "kind"), ctypes.byref(received)), "push_location")
        else:
            fix = n.Fix()
            n.bvgeo_fix_init(ctypes.byref(fix))
            fix.latitude, fix.longitude = _number(latitude, "latitude"), _number(longitude, "longitude")
            fix.accuracy, fix.time = _number(accuracy, "accuracy"), _seconds(time, "time")
            fix.hdop, fix.speed = _number(hdop, "hdop"), _number(speed, "speed")
            fix.satellites_used = _integer(satellites_used, "satellites_used", (-(2 ** 31), 2 ** 31 - 1))
            fix.mode = _integer(int(mode), "mode", (-(2 ** 31), 2 ** 31 - 1))
            _raise_for(n.bvgeo_push_fix(self._h(), ctypes.byref(fix), _integer(int(kind), "kind"),
                                        ctypes.byref(received)), "push_location")
        self._raise_callback_error()
        return received.value

    # ---- main queue ----

    def run_main_queue(self) -> None:
        """MainQueue.HOST: serves the main queue on this thread until stop_main_queue()."""
        _raise_for(n.bvgeo_main_queue_run(self._h()), "run_main_queue")
        self._raise_callback_error()

    def stop_main_queue(self) -> None:
        _raise_for(n.bvgeo_main_queue_stop(self._h()), "stop_main_queue")

    def run_pending(self) -> int:
        """MainQueue.HOST: runs what is due now; VIRTUAL_TIME: everything pending.
        Returns how many items ran."""
        ran = ctypes.c_size_t()
        _raise_for(n.bvgeo_main_queue_run_pending(self._h(), ctypes.byref(ran)), "run_pending")
        self._raise_callback_error()
        return ran.value

    # ---- virtual time ----

    @property
    def now(self) -> float:
        """Virtual time: the clock, seconds since 1970."""
        out = ctypes.c_double()
        _raise_for(n.bvgeo_virtual_now(self._h(), ctypes.byref(out)), "now")
        return out.value

    def advance_to(self, time: Time) -> None:
        """Virtual time: fires every timer due up to `time`, then leaves the clock there."""
        time = _seconds(time, "time")
        if not math.isfinite(time):
            raise InvalidArgumentError(f"time {time} is not finite", n.ERR_INVALID_ARGUMENT)
        _raise_for(n.bvgeo_virtual_advance_to(self._h(), time), "advance_to")
        self._raise_callback_error()

    def settle(self, timeout: float = 30.0) -> None:
        """Waits until every fix pushed so far is decided, its callbacks have run and
        its reports are sent or queued (virtual time: runs all of it here, without
        moving the clock). VirtualTimeError (a TimeoutError) when the library was
        still busy after `timeout` seconds."""
        _raise_for(n.bvgeo_settle(self._h(), _number(timeout, "timeout")), "settle")
        self._raise_callback_error()

    @property
    def next_timer(self) -> Optional[float]:
        """Virtual time: the earliest timer's due time, or None."""
        has, due = ctypes.c_int(), ctypes.c_double()
        _raise_for(n.bvgeo_virtual_next_timer(self._h(), ctypes.byref(has), ctypes.byref(due)), "next_timer")
        return due.value if has.value else None

    # ---- debug console ----

    def start_console(self, port: int = 0, tile_url_template: Optional[str] = None,
                      action_timeout_seconds: float = 30.0) -> str:
        """Serves the debug console on 127.0.0.1; returns its URL."""
        c = n.ConsoleOptions()
        n.bvgeo_console_options_init(ctypes.byref(c))
        c.port = _integer(port, "port", (-(2 ** 31), 2 ** 31 - 1))
        c.tile_url_template = _text(tile_url_template, "tile_url_template", optional=True)
        c.action_timeout_seconds = _number(action_timeout_seconds, "action_timeout_seconds")
        _raise_for(n.bvgeo_console_start(self._h(), ctypes.byref(c)), "start_console")
        return self.console_url

    def stop_console(self) -> None:
        _raise_for(n.bvgeo_console_stop(self._h()), "stop_console")

    @property
    def console_url(self) -> str:
        """"http://127.0.0.1:PORT/", or "" when no console runs."""
        out = ctypes.c_void_p()
        _raise_for(n.bvgeo_console_url(self._h(), ctypes.byref(out)), "console_url")
        return n.take_text(out)

    # ---- console lines ----

    def _console_line(self, line, _user):
        text = (line or b"").decode("utf-8", errors="replace")
        try:
            if self._console is not None:
                self._console(text)
            else:
                console_log.debug("%s", text)
        except BaseException as error:  # noqa: B036 - nothing may unwind into C
            log.exception("bvgeo: the console callback raised")
            self._keep_callback_error(error)

