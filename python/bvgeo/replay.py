"""replay(): plays a recorded track through the library as a host application
would (configure, optional tuning, callback, start; stop at the end), in virtual
time: the clock is set to each fix's time and everything the fix started runs
before the next one, so hours of track play in seconds."""

import os
import tempfile

from .tracker import Tracker
from .tracks import read_track
from .types import Environment, Fix, MainQueue, ReplayResult, ReplaySummary, TriggerMode


def _fixes(track):
    if isinstance(track, (str, os.PathLike)):
        return read_track(track)
    fixes = []
    for item in track:
        fixes.append(item if isinstance(item, Fix) else Fix(*item))
    if not fixes:
        raise ValueError("the track has no fix")
    return fixes, 0


def replay(track, *, app_id="demo", environment=Environment.DEVELOPMENT, api_base=None, assets_base=None,
           trigger_mode=TriggerMode.BOTH, documents_directory=None, parameters=None, extended_options=None,
           drain=600.0, on_trigger=None, keep_console=False):
    """Plays `track` (a GPX or CSV file, or an iterable of Fix or (lat, lon, time))
    and returns a ReplayResult: the triggers the callback got, in order, and a
    summary. api_base and assets_base point `environment` at a server (e.g.
    "http://127.0.0.1:8080/api/v1/app/" and "http://127.0.0.1:8080/").
    documents_directory: where the database goes (default: a new temporary
    directory, kept, named in summary.database). parameters: a bvgeo.Parameters
    for setParameters. drain: after the last fix, track time runs on until the
    request queue is empty or this many seconds passed. on_trigger: also called
    with each Trigger as it arrives. keep_console: the library's console lines in
    result.console instead of the "bvgeo.console" logger."""
    fixes, skipped = _fixes(track)
    if documents_directory is None:
        documents_directory = tempfile.mkdtemp(prefix="bvgeo-replay-")
    result = ReplayResult(summary=ReplaySummary(fixes_read=len(fixes) + skipped),
                          console=[] if keep_console else None)
    summary = result.summary

    def received(trigger):
        result.triggers.append(trigger)
        if trigger.event in ("enter", "linger", "exit"):
            setattr(summary, trigger.event, getattr(summary, trigger.event) + 1)
        if on_trigger is not None:
            on_trigger(trigger)

    console = result.console.append if keep_console else None
    with Tracker(documents_directory, main_queue=MainQueue.VIRTUAL_TIME, start_time=fixes[0].time,
                 console=console) as tracker:
        if api_base is not None or assets_base is not None:
            tracker.set_environment_urls(environment, api_base, assets_base)
        tracker.configure(app_id, trigger_mode, environment)
        if parameters is not None:
            tracker.set_parameters(parameters)
        if extended_options is not None:
            tracker.extended_options = extended_options
        tracker.on_trigger = received
        tracker.start()
        tracker.settle()
        for fix in fixes:
            if tracker.push_location(fix.latitude, fix.longitude, fix.time, fix.accuracy, hdop=fix.hdop,
                                     speed=fix.speed, satellites_used=fix.satellites_used, mode=fix.mode) > 0:
                summary.fixes_delivered += 1
        # Let track time run on while reports still wait to go out.
        limit = fixes[-1].time + drain
        while tracker.pending_reports:
            due = tracker.next_timer
            if due is None or due > limit:
                break
            tracker.advance_to(due)
        tracker.stop()
        tracker.settle()
        summary.reports_still_queued = tracker.pending_reports
        summary.device_id = tracker.device_id
        summary.database = tracker.database_path
    return result
