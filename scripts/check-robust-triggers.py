#!/usr/bin/env python3
"""Runs recorded tracks through `bvgeo replay` with the standard rule and with
--robust-triggers, and checks what the robust rules promise.

Stationary recordings (--stationary FILE, repeatable): fences of 200 m whose rim
passes the recording's median position at -25, -10, 0, +10 and +25 m (negative:
the median lies inside), their centres due north of it (--bearings adds more
directions). Each fence may change state at most once over the whole recording.

Moving tracks (--track FILE[,YYYY-MM-DD], the date for NMEA logs without one):
circles of 0.5, 1 and 2 km around every place of --places (GeoNames cities1000 as
CSV, gzip or plain) within 20 km of the track. With the robust rules: no stay
shorter than 2 minutes, no re-entry within 2 minutes of an exit; every visit of
the standard rule (its stays merged across re-entries less than 2 minutes apart)
lasting 5 minutes or more is reported, entered within 60 s of its first enter and
left within 60 s of its last exit (or both still inside at the end); every stay
reported overlaps a visit of the standard rule.

    scripts/check-robust-triggers.py --bvgeo build/default/apps/bvgeo \\
        --places ../shared/data/places/cities1000.csv.gz \\
        --track ../shared/data/tracks/kent-run-2014-05-10.gpx \\
        --track ../shared/data/tracks/gulf-of-finland-sail.nmea,2014-08-15 \\
        --stationary ../shared/data/stationary/signalk-server__gps.log

Extra replay options (tunables, say) go after --: they apply to the robust runs.
Exits 0 when every check holds, 1 when one fails, 2 on bad arguments.
"""
import argparse
import csv
import gzip
import io
import json
import math
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
from datetime import datetime, timezone
from pathlib import Path

EARTH_RADIUS_M = 6371008.8
TWO_MINUTES = 120
FIVE_MINUTES = 300
LAG_LIMIT = 60
STATIONARY_RADIUS = 200.0
STATIONARY_OFFSETS = (-25, -10, 0, 10, 25)
MOVING_RADII = (500, 1000, 2000)
PLACES_WITHIN_M = 20000.0


# ---- geometry -------------------------------------------------------------------

def distance_m(lat1, lon1, lat2, lon2):
    p1, p2 = math.radians(lat1), math.radians(lat2)
    dp, dl = p2 - p1, math.radians(lon2 - lon1)
    h = math.sin(dp / 2) ** 2 + math.cos(p1) * math.cos(p2) * math.sin(dl / 2) ** 2
    return 2 * EARTH_RADIUS_M * math.asin(math.sqrt(min(1.0, h)))


def destination(lat, lon, bearing_deg, metres):
    p, l, b, a = math.radians(lat), math.radians(lon), math.radians(bearing_deg), metres / EARTH_RADIUS_M
    p2 = math.asin(math.sin(p) * math.cos(a) + math.cos(p) * math.sin(a) * math.cos(b))
    l2 = l + math.atan2(math.sin(b) * math.sin(a) * math.cos(p), math.cos(a) - math.sin(p) * math.sin(p2))
    return math.degrees(p2), math.degrees(l2)


# ---- positions of a recording (only to place fences; bvgeo reads the files itself) ---

def nmea_degrees(value, hemisphere):
    number = float(value)
    degrees = math.floor(number / 100)
    result = degrees + (number - degrees * 100) / 60
    return -result if hemisphere in ("S", "W") else result


def positions(path):
    """(lat, lon) of every fix in a GPX, NMEA or CSV file, repeats of one instant once."""
    text = Path(path).read_text(encoding="utf-8", errors="replace")
    if text.lstrip().startswith("<"):
        return [(float(a), float(b)) for b, a in
                re.findall(r'<trkpt[^>]*?lon="([-\d.]+)"[^>]*?lat="([-\d.]+)"', text)] + \
               [(float(a), float(b)) for a, b in re.findall(r'<trkpt[^>]*?lat="([-\d.]+)"[^>]*?lon="([-\d.]+)"', text)]
    if re.search(r"^\s*[$!][A-Z]{2}", text, re.M):
        seen, out = set(), []
        for line in text.splitlines():
            fields = line.strip().split("*")[0].split(",")
            kind = fields[0][3:] if len(fields[0]) == 6 else ""
            try:
                if kind == "RMC" and fields[2] == "A":
                    key, lat, lon = fields[1], nmea_degrees(fields[3], fields[4]), nmea_degrees(fields[5], fields[6])
                elif kind == "GGA" and fields[6] not in ("", "0"):
                    key, lat, lon = fields[1], nmea_degrees(fields[2], fields[3]), nmea_degrees(fields[4], fields[5])
                elif kind == "GLL" and len(fields) > 6 and fields[6] != "V":
                    key, lat, lon = fields[5], nmea_degrees(fields[1], fields[2]), nmea_degrees(fields[3], fields[4])
                else:
                    continue
            except (ValueError, IndexError):
                continue
            if key not in seen:
                seen.add(key)
                out.append((lat, lon))
        return out
    rows = csv.DictReader(io.StringIO(text))
    names = {name.strip().lower(): name for name in rows.fieldnames or []}
    lat_name = names.get("lat") or names.get("latitude")
    lon_name = names.get("lon") or names.get("lng") or names.get("longitude")
    time_name = next((names[n] for n in ("time", "timestamp", "time_utc", "timestamp_utc", "datetime") if n in names),
                     None)
    seen, out = set(), []
    for row in rows:
        key = row.get(time_name) if time_name else None
        if key in seen:
            continue
        seen.add(key)
        try:
            out.append((float(row[lat_name]), float(row[lon_name])))
        except (TypeError, ValueError):
            continue
    return out


# ---- running bvgeo --------------------------------------------------------------

class Server:
    """`bvgeo serve` over the zone files of one fence list, on a free loopback port."""

    def __init__(self, program, work, fences):
        places = work / "places.csv"
        with places.open("w", newline="") as out:
            writer = csv.writer(out)
            writer.writerow(["id", "name", "lat", "lon", "radius"])
            for fence in fences:
                writer.writerow([fence["id"], fence["name"], f"{fence['lat']:.7f}", f"{fence['lon']:.7f}",
                                 fence["radius"]])
        subprocess.run([program, "zones", "build", str(places), "--out", str(work / "zones"), "--app-id", "check"],
                       check=True, stdout=subprocess.DEVNULL)
        self.process = subprocess.Popen([program, "serve", "--root", str(work / "zones"), "--port", "0", "--quiet"],
                                        stdout=subprocess.PIPE, text=True)
        found = re.search(r"http://127\.0\.0\.1:\d+/", self.process.stdout.readline())
        if not found:
            self.process.terminate()
            raise RuntimeError("bvgeo serve did not start")
        self.base = found.group(0)

    def close(self):
        self.process.terminate()
        self.process.wait(timeout=30)


def replay(program, server, work, track, date, extra):
    """(triggers, summary) of one replay, in virtual time."""
    data = Path(tempfile.mkdtemp(dir=work, prefix="run-"))
    command = [program, "replay", str(track), "--json", "--stays", "--app-id", "check",
               "--api-base", server.base + "api/v1/app/", "--assets-base", server.base, "--data-dir", str(data)]
    if date:
        command += ["--date", date]
    result = subprocess.run(command + extra, check=True, capture_output=True, text=True)
    lines = [json.loads(line) for line in result.stdout.splitlines() if line.startswith("{")]
    summary = next(line for line in lines if line.get("summary"))
    shutil.rmtree(data, ignore_errors=True)
    return [line for line in lines if not line.get("summary")], summary


# ---- the checks -----------------------------------------------------------------

def check_stationary(program, path, bearings, robust_options, work):
    fixes = positions(path)
    median = (statistics.median(p[0] for p in fixes), statistics.median(p[1] for p in fixes))
    fences = []
    for bearing in bearings:
        for offset in STATIONARY_OFFSETS:
            lat, lon = destination(median[0], median[1], bearing, STATIONARY_RADIUS + offset)
            fences.append({"id": f"b{bearing:03d}{offset:+d}m", "name": f"rim {offset:+d} m, bearing {bearing}",
                           "lat": lat, "lon": lon, "radius": STATIONARY_RADIUS})
    server = Server(program, work, fences)
    try:
        changes = {}
        for label, extra in (("written", []), ("robust", ["--robust-triggers"] + robust_options)):
            triggers, _ = replay(program, server, work, path, None, extra)
            per_fence = {fence["id"]: 0 for fence in fences}
            for trigger in triggers:
                if trigger["event"] in ("enter", "exit"):
                    per_fence[trigger["fenceId"]] += 1
            changes[label] = per_fence
    finally:
        server.close()
    written, robust = changes["written"], changes["robust"]
    flapping = [fence for fence, count in robust.items() if count > 1]
    print(f"{Path(path).name}: {len(fixes)} fixes; enter/exit triggers: standard rule {sum(written.values())}, "
          f"robust {sum(robust.values())}; fences changing more than once: standard "
          f"{sum(1 for c in written.values() if c > 1)}, robust {len(flapping)} of {len(fences)}")
    for fence in fences:
        print(f"    {fence['id']:>10}  standard {written[fence['id']]:3d}  robust {robust[fence['id']]:3d}")
    return not flapping


def load_places(path, track_points):
    south = min(p[0] for p in track_points) - 0.5
    north = max(p[0] for p in track_points) + 0.5
    sample = track_points[::max(1, len(track_points) // 2000)]
    opener = gzip.open if str(path).endswith(".gz") else open
    places = []
    with opener(path, "rt", encoding="utf-8", newline="") as table:
        for row in csv.DictReader(table):
            lat, lon = float(row["lat"]), float(row["lon"])
            if not south <= lat <= north:
                continue
            if min(distance_m(lat, lon, p[0], p[1]) for p in sample) <= PLACES_WITHIN_M:
                places.append((row["geonameid"], row["name"], lat, lon))
    return places


def stays_by_fence(summary):
    out = {}
    for stay in summary["stays"]["list"]:
        out.setdefault(stay["fenceId"], []).append((stay["enter"], stay["exit"]))
    return out


def track_end(summary):
    """When the track ended, as far as a stay still open at its end tells."""
    for stay in summary["stays"]["list"]:
        if stay["exit"] is None and stay["enter"] is not None:
            return stay["enter"] + stay["seconds"]
    return None


def merged(stays):
    visits = []
    for enter, leave in stays:
        if visits and visits[-1][1] is not None and enter is not None and enter - visits[-1][1] < TWO_MINUTES:
            visits[-1] = (visits[-1][0], leave)
        else:
            visits.append((enter, leave))
    return visits


def check_moving(program, path, date, places_file, robust_options, work):
    points = positions(path)
    places = load_places(places_file, points)
    fences = [{"id": f"gn{gid}-{radius}", "name": f"{name} {radius} m", "lat": lat, "lon": lon, "radius": radius}
              for gid, name, lat, lon in places for radius in MOVING_RADII]
    server = Server(program, work, fences)
    try:
        _, written_summary = replay(program, server, work, path, date, [])
        _, robust_summary = replay(program, server, work, path, date, ["--robust-triggers"] + robust_options)
    finally:
        server.close()
    end = track_end(written_summary) or track_end(robust_summary)
    written, robust = stays_by_fence(written_summary), stays_by_fence(robust_summary)
    problems, visits_checked, enter_lags, exit_lags = [], 0, [], []
    for fence, stays in robust.items():
        for enter, leave in stays:
            if enter is not None and leave is not None and leave - enter < TWO_MINUTES:
                problems.append(f"{fence}: robust stay of {leave - enter} s")
        for (_, leave), (enter, _) in zip(stays, stays[1:]):
            if leave is not None and enter is not None and enter - leave < TWO_MINUTES:
                problems.append(f"{fence}: robust re-entry {enter - leave} s after the exit")
    for fence, stays in written.items():
        visits = merged(stays)
        for enter, leave in visits:
            last = leave if leave is not None else end
            if enter is None or last is None or last - enter < FIVE_MINUTES:
                continue
            visits_checked += 1
            candidates = [s for s in robust.get(fence, []) if s[0] is not None and abs(s[0] - enter) <= LAG_LIMIT]
            match = [s for s in candidates if (s[1] is None and leave is None) or
                     (s[1] is not None and leave is not None and abs(s[1] - leave) <= LAG_LIMIT)]
            if not match:
                problems.append(f"{fence}: visit {enter}..{leave} not reported within {LAG_LIMIT} s "
                                f"(robust stays {robust.get(fence, [])})")
                continue
            enter_lags.append(match[0][0] - enter)
            if leave is not None:
                exit_lags.append(match[0][1] - leave)
        for enter, leave in robust.get(fence, []):
            overlaps = any((enter is None or vl is None or enter <= vl) and (leave is None or ve is None or ve <= leave)
                           for ve, vl in visits)
            if not overlaps:
                problems.append(f"{fence}: robust stay {enter}..{leave} overlaps no visit of the standard rule")
    for fence in robust.keys() - written.keys():
        problems.append(f"{fence}: robust stays {robust[fence]} where the standard rule has none")
    w, r = written_summary["stays"], robust_summary["stays"]
    print(f"{Path(path).name}: {len(points)} fixes, {len(places)} places within 20 km, {len(fences)} fences")
    print(f"    standard rule: {w['count']} stays, {w['shorterThan2Minutes']} shorter than 2 min, "
          f"{w['reentriesWithin2Minutes']} re-entries within 2 min")
    print(f"    robust:        {r['count']} stays, {r['shorterThan2Minutes']} shorter than 2 min, "
          f"{r['reentriesWithin2Minutes']} re-entries within 2 min")
    print(f"    visits of 5 min or more: {visits_checked}, reported: {visits_checked - sum('not reported' in p for p in problems)}"
          f"; enter lag max {max(enter_lags, default=0)} s, exit lag max {max(exit_lags, default=0)} s")
    for problem in problems:
        print("    FAIL " + problem)
    return not problems


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bvgeo", required=True, help="the bvgeo program")
    parser.add_argument("--places", help="GeoNames cities1000 as CSV (.csv or .csv.gz), for the moving checks")
    parser.add_argument("--track", action="append", default=[], metavar="FILE[,DATE]")
    parser.add_argument("--stationary", action="append", default=[], metavar="FILE")
    parser.add_argument("--bearings", default="0", help="directions of the stationary fences' centres, degrees")
    parser.add_argument("robust_options", nargs="*", help="after --: more options for the robust runs")
    args = parser.parse_args()
    if args.track and not args.places:
        parser.error("--track needs --places")
    bearings = [int(b) for b in args.bearings.split(",")]
    ok = True
    with tempfile.TemporaryDirectory(prefix="bvgeo-robust-") as scratch:
        for number, path in enumerate(args.stationary):
            work = Path(scratch) / f"stationary-{number}"
            work.mkdir()
            ok &= check_stationary(args.bvgeo, path, bearings, args.robust_options, work)
        for number, argument in enumerate(args.track):
            path, _, date = argument.partition(",")
            work = Path(scratch) / f"track-{number}"
            work.mkdir()
            ok &= check_moving(args.bvgeo, path, date or None, args.places, args.robust_options, work)
    print("all checks hold" if ok else "some checks failed")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
