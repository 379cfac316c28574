"""replay(): plays a recorded track through the library as a host application
would (configure, optional tuning, callback, start; stop at the end), in virtual
time: the clock is set to each fix's time and everything the fix started runs
before the next one, so hours of track play in seconds. The summary counts as
`bvgeo replay` counts, and str(result.summary) is the summary it prints."""

import os
import shutil
import sqlite3
import tempfile
from typing import Callable, Iterable, Optional, Tuple, Union

from .tracker import Tracker
from .tracks import read_track
from .types import (Environment, ExtendedOptions, Fix, MainQueue, Parameters, ReplayResult, ReplaySummary, Trigger,
                    TriggerMode)

Track = Union[str, "os.PathLike[str]", Iterable[Union[Fix, Tuple[float, float, float]]]]


def _fixes(track):
    if isinstance(track, (str, os.PathLike)):
        return read_track(track)
    fixes = []
    for item in track:
        fixes.append(item if isinstance(item, Fix) else Fix(*item))
    if not fixes:
        raise ValueError("the track has no fix")
    return fixes, 0


class _Tally:
    """What the database says a run did, read as `bvgeo replay` reads it: location
    rows added, and request outcomes as logged (counted as they come when the log
    keeps only its newest rows, so none is trimmed away uncounted)."""

    def __init__(self, database):
        self._db = sqlite3.connect(f"file:{database}?mode=ro", uri=True)
        self._log = self._scalar("SELECT coalesce(max(id), 0) FROM log")
        self._locations = self._scalar("SELECT coalesce(max(id), 0) FROM locations")
        self.sent = self.retried = 0

    def _scalar(self, sql, args=()):
        return self._db.execute(sql, args).fetchone()[0]

    def update(self):
        newest = self._scalar("SELECT coalesce(max(id), 0) FROM log")
        count = ("SELECT count(*) FROM log WHERE id > ? AND id <= ? AND category = 'REQUESTS' "
                 "AND instr(message, ?) > 0")
        self.sent += self._scalar(count, (self._log, newest, "Request Completed Successfully: "))
        self.retried += self._scalar(count, (self._log, newest, "Request Error: "))
        self._log = newest

    def accepted(self):
        return self._scalar("SELECT coalesce(max(id), 0) FROM locations") - self._locations

    def close(self):
        self._db.close()


def replay(track: Track, *, app_id: str = "demo", environment: Environment = Environment.PRODUCTION,
           api_base: Optional[str] = None, assets_base: Optional[str] = None,
           trigger_mode: TriggerMode = TriggerMode.BOTH,
           documents_directory: Optional[Union[str, "os.PathLike[str]"]] = None,
           parameters: Optional[Parameters] = None, extended_options: Optional[ExtendedOptions] = None,
           drain: float = 600.0, on_trigger: Optional[Callable[[Trigger], None]] = None,
           keep_console: bool = False,
           preload: Optional[Union[str, "os.PathLike[str]"]] = None) -> ReplayResult:
    """Plays `track` (a GPX or CSV file, or an iterable of Fix or (lat, lon, time))
    and returns a ReplayResult: the triggers the callback got, in order, and a
    summary. api_base and assets_base point `environment` (PRODUCTION by default,
    as in Tracker.configure) at a server, e.g. "http://127.0.0.1:8080/api/v1/app/"
    and "http://127.0.0.1:8080/". documents_directory: where the database goes
    (default: a temporary directory, removed at the end). parameters: a
    bvgeo.Parameters for setParameters. drain: after the last fix, track time runs
    on until the request queue is empty or this many seconds passed. on_trigger:
    also called with each Trigger as it arrives. keep_console: the library's console
    lines in result.console instead of the "bvgeo.console" logger. preload: a
    directory of zone files to fill the zone cache from before the start (needs
    extended_options with zone_cache > 0)."""
    fixes, skipped = _fixes(track)
    temporary = documents_directory is None
    if temporary:
        documents_directory = tempfile.mkdtemp(prefix="bvgeo-replay-")
    try:
        return _play(fixes, skipped, os.fspath(documents_directory), temporary, app_id, environment, api_base,
                     assets_base, trigger_mode, parameters, extended_options, drain, on_trigger, keep_console,
                     preload)
    finally:
        if temporary:
            shutil.rmtree(documents_directory, ignore_errors=True)


def _play(fixes, skipped, directory, temporary, app_id, environment, api_base, assets_base, trigger_mode,
          parameters, extended_options, drain, on_trigger, keep_console, preload):
    result = ReplayResult(summary=ReplaySummary(fixes_read=len(fixes) + skipped, fixes_skipped=skipped),
                          console=[] if keep_console else None)
    summary = result.summary

    def received(trigger):
        result.triggers.append(trigger)
        if trigger.event in ("enter", "linger", "exit"):
            setattr(summary, trigger.event, getattr(summary, trigger.event) + 1)
        if on_trigger is not None:
            on_trigger(trigger)

    console = result.console.append if keep_console else None
    with Tracker(directory, main_queue=MainQueue.VIRTUAL_TIME, start_time=fixes[0].time,
                 console=console) as tracker:
        if api_base is not None or assets_base is not None:
            tracker.set_environment_urls(environment, api_base, assets_base)
        tracker.configure(app_id, trigger_mode, environment)
        if parameters is not None:
            tracker.set_parameters(parameters)
        if extended_options is not None:
            tracker.extended_options = extended_options
        if preload is not None:
            tracker.preload_zones(preload)
        tracker.on_trigger = received
        tracker.start()
        tracker.settle()
        tally = _Tally(tracker.database_path)
        trimming = extended_options is not None and extended_options.max_log_rows > 0
        try:
            for fix in fixes:
                if tracker.push_location(fix.latitude, fix.longitude, fix.accuracy, fix.time, hdop=fix.hdop,
                                         speed=fix.speed, satellites_used=fix.satellites_used, mode=fix.mode) > 0:
                    summary.fixes_delivered += 1
                if trimming:
                    tally.update()
            # Let track time run on while reports still wait to go out.
            limit = fixes[-1].time + drain
            while tracker.pending_reports:
                due = tracker.next_timer
                if due is None or due > limit:
                    break
                tracker.advance_to(due)
                if trimming:
                    tally.update()
            tracker.stop()
            tracker.settle()
            tally.update()
            summary.fixes_accepted = tally.accepted()
        finally:
            tally.close()
        summary.requests_sent, summary.requests_retried = tally.sent, tally.retried
        summary.reports_still_queued = tracker.pending_reports
        if extended_options is not None and extended_options.durable_delivery:
            summary.outbox_reports = _outbox_count(directory)
        summary.device_id = tracker.device_id
        summary.database = tracker.database_path + (" (a temporary folder, removed)" if temporary else "")
    return result


def _outbox_count(directory):
    """Reports in the outbox beside the database (durable delivery), as the CLI counts them."""
    path = os.path.join(directory, "BVGOutbox.sqlite")
    if not os.path.exists(path):
        return 0
    db = sqlite3.connect(f"file:{path}?mode=ro", uri=True)
    try:
        return db.execute("SELECT count(*) FROM reports").fetchone()[0]
    except sqlite3.Error:
        return 0
    finally:
        db.close()
