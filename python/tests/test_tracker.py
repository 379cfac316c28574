"""The Tracker over the C API: the enter/linger/exit story in virtual and real
time, reset, bad arguments, a callback that raises, and calls in the wrong order."""

import json
import logging
import threading
import urllib.request
from datetime import datetime, timezone
from pathlib import Path

import pytest

import bvgeo
from conftest import FENCE_LAT, east

T0 = 1_400_000_000.0
# (metres east of the fence centre, seconds after T0): outside, enter, inside,
# linger (300 s after the enter), exit.
WALK = [(-800, 0), (-100, 60), (0, 200), (50, 400), (500, 460)]


def open_host(data_dir, server, main_queue=bvgeo.MainQueue.VIRTUAL_TIME, linger_time=300, lines=None):
    tracker = bvgeo.Tracker(data_dir, main_queue=main_queue, start_time=T0,
                            console=lines.append if lines is not None else None)
    tracker.set_environment_urls(bvgeo.Environment.DEVELOPMENT, server + "api/v1/app/", server)
    tracker.configure("py", bvgeo.TriggerMode.BOTH, bvgeo.Environment.DEVELOPMENT)
    tracker.set_parameters(distance_filter=bvgeo.DISTANCE_FILTER_NONE, linger_time=linger_time)
    return tracker


def walk(tracker):
    for metres, seconds in WALK:
        tracker.push_location(FENCE_LAT, east(metres), 5.0, T0 + seconds)


def test_virtual_time_gives_enter_linger_exit_with_every_field(data_dir, server):
    received = []
    with open_host(data_dir, server) as tracker:
        tracker.on_trigger = received.append
        assert tracker.start()
        walk(tracker)
        assert [t.event for t in received] == ["enter", "linger", "exit"]
        assert [t.timestamp for t in received] == [T0 + 60, T0 + 400, T0 + 460]
        device = tracker.device_id
        for trigger in received:
            assert (trigger.fence_id, trigger.fence_name, trigger.device_id) == ("py-1", "Harbour Square", device)
            assert trigger.location_event in ("regular", "significantchanges")
        assert tracker.list_triggers() == received
        # The reports leave on the request queue's timer, in virtual time too.
        assert tracker.pending_reports == 1  # the exit's; the others left on earlier timers
        tracker.advance_to(tracker.now + 60)
        assert tracker.pending_reports == 0
        assert Path(tracker.database_path).is_file()


def test_own_thread_main_queue_calls_back_on_the_librarys_thread(data_dir, server):
    received, threads, arrived = [], [], threading.Condition()

    def on_trigger(trigger):
        with arrived:
            received.append(trigger.event)
            threads.append(threading.get_ident())
            arrived.notify_all()

    def push_and_wait(metres, count, now):
        tracker.push_location(FENCE_LAT, east(metres), time=now, kind=bvgeo.FixKind.STANDARD)
        with arrived:
            assert arrived.wait_for(lambda: len(received) >= count, timeout=30), received

    # Real time: without linger pacing every later fix inside lingers.
    with open_host(data_dir, server, bvgeo.MainQueue.OWN_THREAD, linger_time=0) as tracker:
        tracker.on_trigger = on_trigger
        assert tracker.start()
        push_and_wait(0, 1, None)
        push_and_wait(20, 2, None)
        push_and_wait(800, 3, None)
    assert received == ["enter", "linger", "exit"]
    assert threading.get_ident() not in threads


@pytest.mark.parametrize("route", ["console callable", "logging handler"])
def test_console_lines_may_call_the_tracker_on_their_thread_and_from_one_they_wait_for(data_dir, server, route):
    seen, answers, helpers, lock = [], [], [], threading.Lock()
    tracker = None

    def from_helper():
        tracker.log("logged by a helper thread")
        answers.append(tracker.pending_reports)

    def on_line(text):
        with lock:
            seen.append(text)
            # A logging handler holds its own lock while it emits: a helper thread's
            # line would wait for it, so the handler calls the tracker on its own thread.
            spawn = route == "console callable" and tracker is not None and len(helpers) < 3 and \
                "helper thread" not in text
            if spawn:
                helpers.append(text)
        if tracker is None:  # a line of bvgeo_open itself
            return
        tracker.log("logged from the console")
        answers.append(tracker.pending_reports)
        if spawn:
            helper = threading.Thread(target=from_helper)
            helper.start()
            helper.join()

    class Handler(logging.Handler):
        def emit(self, record):
            on_line(record.getMessage())

    handler, console_logger = Handler(), logging.getLogger("bvgeo.console")
    console_logger.addHandler(handler)
    console_logger.setLevel(logging.DEBUG)
    try:
        with bvgeo.Tracker(data_dir, main_queue=bvgeo.MainQueue.OWN_THREAD,
                           console=on_line if route == "console callable" else None) as opened:
            tracker = opened
            tracker.set_environment_urls(bvgeo.Environment.DEVELOPMENT, server + "api/v1/app/", server)
            tracker.configure("py", bvgeo.TriggerMode.BOTH, bvgeo.Environment.DEVELOPMENT)
            assert tracker.start()
            tracker.push_location(FENCE_LAT, east(0), 0, kind=bvgeo.FixKind.STANDARD)
            tracker.log("logged by the host")
    finally:
        console_logger.removeHandler(handler)
    helper_echoes = [line for line in seen if "logged by a helper thread" in line]
    assert len(helper_echoes) == (3 if route == "console callable" else 0), seen
    assert any("Started tracking location" in line for line in seen)
    assert all(isinstance(count, int) for count in answers) and len(answers) >= 6


def test_replay_returns_triggers_and_summary(tmp_path, server):
    gpx = tmp_path / "walk.gpx"
    def utc(seconds):
        return datetime.fromtimestamp(T0 + seconds, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")

    points = "".join(f'<trkpt lat="{FENCE_LAT}" lon="{east(m):.7f}"><time>{utc(s)}</time></trkpt>' for m, s in WALK)
    gpx.write_text(f'<?xml version="1.0"?><gpx xmlns="http://www.topografix.com/GPX/1/1"><trk><trkseg>{points}'
                   f'<trkpt lat="91" lon="0"><time>{utc(900)}</time></trkpt></trkseg></trk></gpx>')
    result = bvgeo.replay(gpx, app_id="py", api_base=server + "api/v1/app/", assets_base=server,
                          documents_directory=tmp_path / "data",
                          parameters=bvgeo.Parameters(distance_filter=bvgeo.DISTANCE_FILTER_NONE))
    assert [t.event for t in result.triggers] == ["enter", "linger", "exit"]
    assert result.triggers[0].timestamp == T0 + 60
    s = result.summary
    assert (s.fixes_read, s.fixes_delivered) == (6, 5)
    assert (s.enter, s.linger, s.exit, s.reports_still_queued) == (1, 1, 1, 0)
    assert len(s.device_id) == 36
    assert Path(s.database).is_file()
    # The summary `bvgeo replay` prints.
    assert str(s) == (f"fixes:    6 read, 1 skipped, {s.fixes_accepted} accepted\n"
                      "triggers: 1 enter, 1 linger, 1 exit\n"
                      "requests: 3 sent, 0 retried, 0 still queued\n"
                      f"database: {s.database}")
    assert s.fixes_accepted >= 3

    # Fixes given as tuples, a second replay in the same process, and no folder given:
    # a temporary one, gone afterwards.
    again = bvgeo.replay([(FENCE_LAT, east(m), T0 + s) for m, s in WALK], app_id="py", api_base=server + "api/v1/app/",
                         assets_base=server)
    assert [t.event for t in again.triggers] == ["enter", "linger", "exit"]
    assert again.summary.database.endswith("(a temporary folder, removed)")
    assert not Path(again.summary.database.split(" (")[0]).parent.exists()


def test_reset_archives_the_database_and_starts_afresh(data_dir, server):
    with open_host(data_dir, server) as tracker:
        assert tracker.start()
        walk(tracker)
        before = tracker.device_id
        assert len(tracker.list_triggers()) == 3

        tracker.reset("archive-1")
        assert (Path(data_dir) / "archive-1.sqlite").is_file()
        assert tracker.list_triggers() == []
        assert tracker.device_id != before
        assert tracker.is_configured  # reset keeps the configuration

        for name, code in (("archive-1", 1000), ("", 1001), ("a/b", 1002)):
            with pytest.raises(bvgeo.ResetError) as refused:
                tracker.reset(name)
            assert refused.value.code == code


def test_bad_arguments_raise_value_error_and_change_nothing(data_dir, server):
    lines = []
    with open_host(data_dir, server, lines=lines) as tracker:
        with pytest.raises(ValueError, match="latitude 200 is outside -90..90"):
            tracker.push_location(200, 0)
        with pytest.raises(ValueError, match="kind 9"):
            tracker.push_location(FENCE_LAT, east(0), kind=9)
        with pytest.raises(ValueError, match="app_id is not valid UTF-8"):
            tracker.configure(b"py\xff")
        with pytest.raises(ValueError, match="app_id is not valid text"):
            tracker.configure("py\ud800")
        with pytest.raises(ValueError, match="zone_interval 0"):
            tracker.set_parameters(zone_interval=0)
        with pytest.raises(ValueError, match="linger_time .* out of range"):
            tracker.set_parameters(linger_time=2 ** 70)
        with pytest.raises(ValueError, match="environment 7"):
            tracker.set_environment_urls(7, "http://x/")
        with pytest.raises(ValueError, match="name contains a NUL"):
            tracker.reset("archive\0.sqlite")
        with pytest.raises(TypeError):
            tracker.log(42)
        # Each refusal the library saw is a log line too.
        assert any("latitude 200 is outside -90..90" in line for line in lines)
        assert any("app_id is not valid UTF-8" in line for line in lines)
        # Nothing changed: the configuration and parameters are as they were.
        assert tracker.is_configured and tracker.app_id == "py"
        assert tracker.parameters.linger_time == 300

        # Out-of-range enumerations go through the facade, which refuses the
        # configuration in its own words, as for a C++ host.
        with pytest.raises(ValueError, match="trigger_mode 7"):
            tracker.configure("py", trigger_mode=7)
        assert not tracker.is_configured
        assert any("Invalid triggerMode 7!" in line for line in lines)


def test_a_callback_that_raises_is_logged_and_the_library_goes_on(data_dir, server, caplog):
    lines, calls = [], []

    def explode(trigger):
        calls.append(trigger.event)
        raise RuntimeError(f"host bug on {trigger.event}")

    with caplog.at_level(logging.ERROR, logger="bvgeo"):
        with open_host(data_dir, server, lines=lines) as tracker:
            tracker.on_trigger = explode
            assert tracker.start()
            # The host hears of it at its next call, after the library did its part.
            surfaced = []
            for metres, seconds in WALK:
                try:
                    tracker.push_location(FENCE_LAT, east(metres), 5.0, T0 + seconds)
                except bvgeo.CallbackError as error:
                    surfaced.append(str(error.__cause__))
            assert surfaced == ["host bug on enter", "host bug on linger", "host bug on exit"]
            assert calls == ["enter", "linger", "exit"]
            assert len(tracker.list_triggers()) == 3
            tracker.advance_to(tracker.now + 60)
            assert tracker.pending_reports == 0
    assert "the trigger callback raised" in caplog.text and "host bug on enter" in caplog.text
    assert any("Python trigger callback raised RuntimeError: host bug on linger" in line for line in lines)


def test_calls_in_the_wrong_order(data_dir):
    lines = []
    with bvgeo.Tracker(data_dir, main_queue=bvgeo.MainQueue.VIRTUAL_TIME, console=lines.append) as tracker:
        # As the facade: start before configure logs and starts nothing; Python raises.
        with pytest.raises(bvgeo.NotConfiguredError):
            tracker.start()
        assert any("BVGeoTracker is not configured! Please configure before calling start()" in line
                   for line in lines)
        assert tracker.push_location(FENCE_LAT, east(0), time=T0) == 0
        # One tracker per process.
        with pytest.raises(bvgeo.StateError, match="already open"):
            bvgeo.Tracker(data_dir)
        # Functions of another main-queue mode.
        with pytest.raises(bvgeo.StateError, match="host main-queue mode"):
            tracker.run_main_queue()
    with pytest.raises(bvgeo.StateError):
        tracker.device_id
    assert bvgeo.version() == "1.3.0"


def test_tracks_are_read_in_time_order_with_what_the_file_says_of_each_fix(tmp_path):
    csv = tmp_path / "walk.csv"
    csv.write_text("Time,Lat,Lon,speed\n"
                   "2014-05-13T16:53:20Z,51.5,0.1,3\n"
                   "1400000060,51.5,0.101,3\n"
                   "1400000030,51.5,0.102,3\n"        # not later than the one before
                   "2014-05-13T16:55:20+00:00,95,0.1,3\n"  # no such latitude
                   ",51.5,0.1,3\n"                       # no time
                   "2014-05-13T17:55:20+01:00,51.5,0.103,3\n")
    fixes, skipped = bvgeo.read_track(csv)
    assert [f.time for f in fixes] == [T0, T0 + 60, T0 + 120]
    assert [f.longitude for f in fixes] == [0.1, 0.101, 0.103]
    assert skipped == 3
    nmea = tmp_path / "log.nmea"
    nmea.write_text("$GPGLL,5950.000,N,02330.000,E,095559,A*2C\n")
    with pytest.raises(bvgeo.TrackError, match="NMEA"):
        bvgeo.read_track(nmea)
    # What the file says of each fix's quality comes through.
    csv_file = tmp_path / "sensor.csv"
    csv_file.write_text("timestamp_utc,lat,lon,hdop,mode,sats_used,speed_mps\n"
                        "2026-02-02T19:37:37.000Z,60.37,25.24,1.4,3,6,0.5\n"
                        "2026-02-02T19:37:38Z,60.37,25.24,,1,0,\n"          # no fix: skipped
                        "2026-02-02T21:37:39.5+02:00,60.37,25.24,4.0,2,5,x\n")
    fixes, skipped = bvgeo.read_track(csv_file)
    assert skipped == 1
    assert [(f.hdop, f.mode, f.satellites_used, f.speed) for f in fixes] == [
        (1.4, bvgeo.FixMode.THREE_D, 6, 0.5), (4.0, bvgeo.FixMode.TWO_D, 5, -1.0)]
    assert fixes[1].time - fixes[0].time == 2.5
    gpx = tmp_path / "walk.gpx"
    gpx.write_text('<gpx xmlns="http://www.topografix.com/GPX/1/1"><trk><trkseg>'
                   '<trkpt lat="51" lon="0"><time>2014-05-10T07:20:55Z</time><fix>2d</fix><pdop>3</pdop>'
                   '<extensions><accuracy>12</accuracy></extensions></trkpt></trkseg></trk></gpx>')
    (fix,), _ = bvgeo.read_track(gpx)
    assert (fix.mode, fix.hdop, fix.accuracy) == (bvgeo.FixMode.TWO_D, 3.0, 12.0)


def reports_at(server, device):
    with urllib.request.urlopen(server + "api/v1/app/py/triggers", timeout=30) as answer:
        listed = json.load(answer)["triggers"]
    return [(t["event"], t["timestamp"]) for t in listed if t["deviceId"] == device]


def test_time_starts_at_the_first_fix_and_never_goes_back_and_close_sends_what_is_owed(data_dir, server):
    # No start_time: virtual time starts where the first fix is.
    tracker = bvgeo.Tracker(data_dir, main_queue=bvgeo.MainQueue.VIRTUAL_TIME)
    tracker.set_environment_urls(bvgeo.Environment.DEVELOPMENT, server + "api/v1/app/", server)
    tracker.configure("py", environment=bvgeo.Environment.DEVELOPMENT)
    tracker.set_parameters(distance_filter=bvgeo.DISTANCE_FILTER_NONE)
    assert tracker.parameters.linger_time == 300 and tracker.parameters.accuracy == 10.0, "the rest kept"
    assert tracker.start()
    tracker.push_location(FENCE_LAT, east(-800), 5.0, datetime.fromtimestamp(T0, timezone.utc))
    assert tracker.now == T0
    for bad, why in ((datetime(2014, 5, 13, 17, 0), "naive datetime"), (T0 * 1000, "looks like milliseconds"),
                     (T0 - 1, "before the virtual clock"), (float("nan"), "is not a time")):
        with pytest.raises(ValueError, match=why):
            tracker.push_location(FENCE_LAT, east(0), 5.0, bad)
    assert tracker.now == T0
    tracker.push_location(FENCE_LAT, east(0), 5.0, T0 + 60)
    device = tracker.device_id
    assert tracker.pending_reports == 1, "the enter's report waits for the queue's timer"
    # Closing sends it at once, without moving the clock, and nothing is owed.
    assert tracker.close() == bvgeo.CloseResult(0, 0)
    assert reports_at(server, device) == [("enter", int(T0 + 60))]
    assert tracker.close() == bvgeo.CloseResult(), "closing twice is harmless"


def test_settle_waits_for_the_zone_download_in_real_time(data_dir, server):
    received = []
    with open_host(data_dir, server, bvgeo.MainQueue.OWN_THREAD) as tracker:
        tracker.on_trigger = received.append
        assert tracker.start()
        tracker.push_location(FENCE_LAT, east(0), 5.0, kind=bvgeo.FixKind.STANDARD)
        tracker.settle()
        assert [t.event for t in received] == ["enter"]
        assert tracker.pending_reports + len(reports_at(server, tracker.device_id)) == 1
        device = tracker.device_id
    assert [event for event, _ in reports_at(server, device)] == ["enter"]


def test_a_preloaded_zone_cache_answers_while_the_zone_server_cannot_be_reached(tmp_path, server):
    zones = tmp_path / "shipped" / "py" / "zones"
    zones.mkdir(parents=True)
    (zones / "zone_51500_100.json").write_text(
        '{"fences":[{"_id":"py-1","name":"Harbour Square","location":{"type":"Point","coordinates":[0.1,51.5]},'
        '"radius":200}]}')
    options = bvgeo.ExtendedOptions(zone_cache=8, prefetch_distance=500.0, polygon_fences=True)
    # Nothing listens on port 9 of the loopback: every zone request fails.
    result = bvgeo.replay([(FENCE_LAT, east(m), T0 + s) for m, s in WALK], app_id="py",
                          api_base=server + "api/v1/app/", assets_base="http://127.0.0.1:9/",
                          documents_directory=tmp_path / "data", extended_options=options,
                          preload=tmp_path / "shipped")
    assert [t.event for t in result.triggers] == ["enter", "linger", "exit"]

    with bvgeo.Tracker(tmp_path / "other") as tracker:
        with pytest.raises(bvgeo.StateError):
            tracker.preload_zones(tmp_path / "shipped")
        tracker.configure("py")
        tracker.extended_options = options
        back = tracker.extended_options
        assert (back.zone_cache, back.prefetch_distance, back.polygon_fences) == (8, 500.0, True)
        assert tracker.preload_zones(tmp_path / "shipped") == (1, 0)


def test_robust_triggers_hold_the_fence_against_rim_noise_and_2d_fixes(data_dir, server):
    received = []
    with open_host(data_dir, server) as tracker:
        tracker.extended_options = bvgeo.ExtendedOptions(robust_triggers=True, confirm_fixes=2, confirm_seconds=5)
        assert (tracker.extended_options.robust_triggers, tracker.extended_options.confirm_fixes) == (True, 2)
        tracker.on_trigger = received.append
        assert tracker.start()
        three_d = dict(accuracy=5.0, mode=bvgeo.FixMode.THREE_D)
        two_d = dict(accuracy=5.0, mode=bvgeo.FixMode.TWO_D)
        for metres, seconds, quality in [
                (0, 0, three_d), (10, 10, three_d),                          # enter, confirmed by the second fix
                (215, 200, three_d), (212, 210, three_d),                    # 12-15 m past the rim: the buffer holds
                (300, 220, two_d), (310, 230, two_d),                        # 2D fixes change nothing,
                (320, 240, dict(hdop=99.9)), (330, 250, dict(hdop=99.9)),    # nor fixes 500 m inaccurate
                (340, 260, three_d), (350, 270, three_d)]:                   # the exit, confirmed
            tracker.push_location(FENCE_LAT, east(metres), time=T0 + seconds, **quality)
    assert [(t.event, t.timestamp - T0) for t in received] == [("enter", 10), ("exit", 270)]
