#!/usr/bin/env python3
"""Outage runs: what a device loses in dead spots, with the written zone handling and
with the zone cache and neighbour prefetch.

For each example track (the Kent run and the Finland sail) it builds the zone files
at --interval degrees, serves them with `bvgeo serve` on a free loopback port, and
replays the track through `bvgeo replay` in virtual time:

  1. online, as written: the reference list of triggers;
  2. online with the zone cache and prefetch at each of --cost-distances and
     --prefetch-distance: the zone requests the reference server saw (its request
     log), those the prefetcher made per neighbour cell and per cacheExpiration,
     and whether any was made at a position farther than the distance from every
     edge of its cell;
  3. with the network down from --before seconds before to --after seconds after
     every cell crossing of the online run (the crossings are where its accepted
     positions change cell), as written and with the cache and prefetch;
  4. with the network down for the whole run after the first zone answer, as
     written and with the cache preloaded from the built zone files.

Each run's triggers are compared with the online run's, fence for fence and second
for second: a trigger missing is lost, one that comes later is delayed, one that
was not there is extra. Only 127.0.0.1 is contacted.

usage: scripts/outage-runs.py [--bvgeo build/default/apps/bvgeo] [--examples examples/data]
                              [--interval 0.05] [--zone-cache 64] [--prefetch-distance 3000]
                              [--cost-distances 500,1000] [--work DIR] [--json]
"""

import argparse
import json
import math
import re
import subprocess
import sys
import tempfile
from collections import defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
TRACKS = [
    ("kent", "kent-run-2014-05-10.gpx", "kent-places.csv", []),
    ("finland", "gulf-of-finland-sail.nmea", "finland-places.csv", ["--date", "2014-08-15"]),
]
APP_ID = "outage"
CACHE_EXPIRATION = 3600  # the configuration's default; the runs do not change it
METRES_PER_DEGREE = 111_195.0


def centre(coordinate, interval):
    """The library's grid: the boundary toward zero, the centre half a cell further out."""
    sign = -1.0 if coordinate < 0 else 1.0
    return (coordinate - math.fmod(coordinate, interval)) + sign * interval / 2


def zone_name(latitude, longitude, interval):
    return "zone_%.f_%.f.json" % (centre(latitude, interval) * 1000.0, centre(longitude, interval) * 1000.0)


def cell_bounds(name):
    lat, lon = (int(v) / 1000.0 for v in re.match(r"zone_(-?\d+)_(-?\d+)\.json$", name).groups())
    return lat, lon


def distance_to_cell(latitude, longitude, name, interval):
    """Metres from a position to a cell's rectangle (0 inside), on a local flat metric."""
    lat, lon = cell_bounds(name)
    half = interval / 2
    dlat = max(lat - half - latitude, 0.0, latitude - lat - half) * METRES_PER_DEGREE
    dlon = max(lon - half - longitude, 0.0, longitude - lon - half) * METRES_PER_DEGREE * math.cos(
        math.radians(latitude))
    return math.hypot(dlat, dlon)


def distance_to_edges(latitude, longitude, interval):
    """Metres from a position to the nearest edge of its own cell."""
    lat, lon = centre(latitude, interval), centre(longitude, interval)
    half = interval / 2
    dlat = (half - abs(latitude - lat)) * METRES_PER_DEGREE
    dlon = (half - abs(longitude - lon)) * METRES_PER_DEGREE * math.cos(math.radians(latitude))
    return min(dlat, dlon)


class Server:
    """`bvgeo serve` on a free port; its request log goes to a file."""

    def __init__(self, cli, root, log):
        self.log = log
        self.process = subprocess.Popen([cli, "serve", "--root", str(root), "--port", "0"],
                                        stdout=subprocess.PIPE, stderr=open(log, "w"), text=True)
        first = self.process.stdout.readline()
        found = re.search(r"http://127\.0\.0\.1:\d+/", first)
        if not found:
            self.stop()
            sys.exit(f"outage-runs: the server said {first!r}")
        self.url = found.group(0)

    def zone_requests(self):
        """Every zone file request the server answered so far, as (file, status)."""
        out = []
        for line in Path(self.log).read_text().splitlines():
            found = re.match(r"GET /[^/]+/zones/(\S+) (\d+)$", line)
            if found:
                out.append((found.group(1), int(found.group(2))))
        return out

    def stop(self):
        self.process.terminate()
        self.process.wait(timeout=30)


def replay(args, track, extra, data_dir, server, options):
    command = [args.bvgeo, "replay", str(track), "--zone-interval", str(args.interval), "--app-id", APP_ID,
               "--api-base", server.url + "api/v1/app/", "--assets-base", server.url, "--data-dir", str(data_dir),
               "--json", *extra, *options]
    done = subprocess.run(command, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"outage-runs: {' '.join(command)} failed:\n{done.stderr[-2000:]}")
    triggers, summary = [], None
    for line in done.stdout.splitlines():
        item = json.loads(line)
        if item.get("summary"):
            summary = item
        else:
            triggers.append((item["event"], item["fenceId"], item["timestamp"]))
    return triggers, summary


def rows(args, what, data_dir, *extra):
    done = subprocess.run([args.bvgeo, what, "--data-dir", str(data_dir), "--json", *extra], capture_output=True,
                          text=True, check=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def crossings(positions, interval):
    """(time, zone entered) wherever consecutive accepted positions change cell."""
    out, last = [], None
    for row in positions:
        zone = zone_name(row["latitude"], row["longitude"], interval)
        if last is not None and zone != last:
            out.append((row["timestamp"], zone))
        last = zone
    return out


def merged(ranges):
    out = []
    for start, end in sorted(ranges):
        if out and start <= out[-1][1]:
            out[-1] = (out[-1][0], max(out[-1][1], end))
        else:
            out.append((start, end))
    return out


def compare(reference, other):
    """(lost, delayed, extra) of `other` against `reference`, as lists of triggers."""
    unused = list(other)
    lost, delayed = [], []
    for trigger in reference:
        if trigger in unused:
            unused.remove(trigger)
            continue
        later = next((t for t in unused if t[:2] == trigger[:2] and t[2] > trigger[2]), None)
        if later:
            unused.remove(later)
            delayed.append((trigger, later[2] - trigger[2]))
        else:
            lost.append(trigger)
    return lost, delayed, unused


def fence_cells(zones_dir):
    cells = defaultdict(set)
    for path in Path(zones_dir).glob("zone_*.json"):
        for fence in json.loads(path.read_text()).get("fences", []):
            cells[fence["_id"]].add(path.name)
    return cells


def never_near(trigger, positions, outages, cells, args):
    """Whether every cell of the trigger's fence lay beyond the prefetch distance of
    every position the device had before the outage the trigger falls in."""
    start = next((a for a, b in outages if a <= trigger[2] <= b), trigger[2])
    before = [p for p in positions if p["timestamp"] < start and not any(a <= p["timestamp"] <= b for a, b in outages)]
    return all(distance_to_cell(p["latitude"], p["longitude"], cell, args.interval) > args.prefetch_distance
               for cell in cells.get(trigger[1], ()) for p in before)


def describe(name, reference, triggers, summary):
    lost, delayed, extra = compare(reference, triggers)
    late = ", ".join(f"{t[0]} {t[1]} +{s} s" for t, s in delayed[:6]) + (" ..." if len(delayed) > 6 else "")
    zones = summary.get("zones", {})
    print(f"  {name:<34} {len(triggers):3d} triggers: {len(lost):2d} lost, {len(delayed):2d} delayed, "
          f"{len(extra):2d} extra; {zones.get('positionsWithoutFences', 0):4d} positions found no fences"
          + (f"  [{late}]" if delayed else ""))
    return {"triggers": len(triggers), "lost": len(lost), "delayed": len(delayed), "extra": len(extra),
            "positionsWithoutFences": zones.get("positionsWithoutFences", 0), "lostTriggers": lost,
            "delayedTriggers": delayed, "extraTriggers": extra}


def prefetch_cost(args, track, extra, data_dir, server, reference, positions, distance):
    before = len(server.zone_requests())
    options = ["--zone-cache", str(args.zone_cache), "--prefetch-distance", str(distance)]
    triggers, _ = replay(args, track, extra, data_dir, server, options)
    seen = len(server.zone_requests()) - before
    logs = rows(args, "logs", data_dir, "--category", "ZONE")
    own = sum("Requested Zone = " in row["message"] for row in logs)
    prefetches = defaultdict(list)
    for row in logs:
        found = re.search(r"Prefetch: (zone_\S+\.json), \d+ m from", row["message"])
        if found:
            prefetches[found.group(1)].append(row["timestamp"])
    per_period = max((sum(1 for u in times if t <= u < t + CACHE_EXPIRATION) for times in prefetches.values()
                      for t in times), default=0)
    # Positions clearly farther than the distance from every edge of their cell, and
    # prefetches made at such a position.
    edge = {}
    for p in positions:
        d = distance_to_edges(p["latitude"], p["longitude"], args.interval)
        edge[p["timestamp"]] = min(edge.get(p["timestamp"], d), d)
    away = sum(1 for d in edge.values() if d > distance * 1.01)
    asked_away = sum(1 for times in prefetches.values() for t in times if edge.get(t, 0) > distance * 1.01)
    lost, delayed, extra_triggers = compare(reference, triggers)
    print(f"  {'online, cache, prefetch %g m' % distance:<34} {len(triggers):3d} triggers ({len(lost)} lost, "
          f"{len(delayed)} delayed, {len(extra_triggers)} extra); zone requests at the server: {seen} = {own} for the "
          f"device's own zone + {seen - own} prefetches of {len(prefetches)} cells, at most {per_period} per cell "
          f"per {CACHE_EXPIRATION} s; {asked_away} prefetches at the {away} position times farther than "
          f"{distance:g} m from every edge")
    return {"serverZoneRequests": seen, "ownZone": own, "prefetchRequests": seen - own, "cells": len(prefetches),
            "maxPerCellPerPeriod": per_period, "positionTimesAwayFromEdges": away, "prefetchesAwayFromEdges": asked_away,
            "differsFromOnline": len(lost) + len(delayed) + len(extra_triggers)}


def run_track(args, work, label, track_file, places_file, extra):
    examples = Path(args.examples)
    track = examples / track_file
    root = work / label / "server"
    zones_dir = root / APP_ID / "zones"
    subprocess.run([args.bvgeo, "zones", "build", str(examples / places_file), "--out", str(root), "--app-id", APP_ID,
                    "--interval", str(args.interval)], check=True, capture_output=True)
    server = Server(args.bvgeo, root, work / label / "requests.log")
    cache = ["--zone-cache", str(args.zone_cache), "--prefetch-distance", str(args.prefetch_distance)]
    result = {}
    try:
        print(f"{label}: {track_file}, {len(list(zones_dir.glob('zone_*.json')))} zone files at {args.interval} deg")

        # 1. Online, as written.
        before = len(server.zone_requests())
        reference, summary = replay(args, track, extra, work / label / "online", server, [])
        written_requests = len(server.zone_requests()) - before
        positions = [p for p in rows(args, "locations", work / label / "online")]
        print(f"  {'online, as written':<34} {len(reference):3d} triggers; {summary['fixes']['accepted']} positions "
              f"accepted; {written_requests} zone requests")

        # 2. Online with the cache and prefetch: what prefetch costs, at several distances.
        result["prefetch"] = {}
        for distance in sorted({*args.cost_distances, args.prefetch_distance}):
            result["prefetch"][distance] = prefetch_cost(args, track, extra, work / label / f"online-cache-{distance:g}",
                                                         server, reference, positions, distance)

        # 3. Dead spots around every crossing.
        crossed = crossings([p for p in positions if p["type"] == "LocationTracker"], args.interval)
        outages = merged([(t - args.before, t + args.after) for t, _ in crossed])
        spots = work / label / "crossings.txt"
        spots.write_text("".join(f"{a},{b}\n" for a, b in outages))
        print(f"  {len(crossed)} cell crossings; network down {args.before} s before to {args.after} s after each: "
              f"{len(outages)} dead spots, {sum(b - a for a, b in outages)} s")
        result["crossings"] = {"crossings": len(crossed), "deadSpots": len(outages),
                               "seconds": sum(b - a for a, b in outages)}
        triggers, summary = replay(args, track, extra, work / label / "crossings-written", server,
                                   ["--offline-file", str(spots)])
        result["crossings"]["written"] = describe("crossings, as written", reference, triggers, summary)
        triggers, summary = replay(args, track, extra, work / label / "crossings-cache", server,
                                   ["--offline-file", str(spots), *cache])
        result["crossings"]["cache"] = outcome = describe("crossings, cache + prefetch", reference, triggers, summary)
        cells = fence_cells(zones_dir)
        unreachable = [t for t in outcome["lostTriggers"] + [d[0] for d in outcome["delayedTriggers"]]
                       if never_near(t, positions, outages, cells, args)]
        outcome["ofFencesNeverNear"] = len(unreachable)
        print(f"  {'':<34} of those missing or late, {len(unreachable)} are of fences that lie only in cells the "
              f"device never came within {args.prefetch_distance:g} m of before the outage")

        # 4. The whole run offline after the first zone answer.
        first = positions[0]["timestamp"]
        whole = ["--offline", f"{first + 1},{positions[-1]['timestamp'] + 86400}"]
        triggers, summary = replay(args, track, extra, work / label / "whole-written", server, whole)
        result["whole"] = {"written": describe("whole run, as written", reference, triggers, summary)}
        triggers, summary = replay(args, track, extra, work / label / "whole-preload", server,
                                   [*whole, "--zone-cache", str(args.zone_cache), "--preload", str(root)])
        result["whole"]["preload"] = outcome = describe("whole run, preloaded cache", reference, triggers, summary)
        # A cell without fences has no zone file to preload (the server answers 403).
        files = {path.name for path in zones_dir.glob("zone_*.json")}
        fenceless = sum(1 for p in positions if p["timestamp"] > first + 1
                        and zone_name(p["latitude"], p["longitude"], args.interval) not in files)
        outcome["positionsInCellsWithoutAZoneFile"] = fenceless
        print(f"  {'':<34} {fenceless} positions lie in cells that have no fence, hence no zone file to preload")
    finally:
        server.stop()
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bvgeo", default=str(ROOT / "build/default/apps/bvgeo"))
    parser.add_argument("--examples", default=str(ROOT / "examples/data"))
    parser.add_argument("--interval", type=float, default=0.05)
    parser.add_argument("--zone-cache", type=int, default=64)
    parser.add_argument("--prefetch-distance", type=float, default=3000.0)
    parser.add_argument("--cost-distances", type=lambda text: [float(v) for v in text.split(",")],
                        default=[500.0, 1000.0], help="more prefetch distances to count the requests of")
    parser.add_argument("--before", type=int, default=120)
    parser.add_argument("--after", type=int, default=600)
    parser.add_argument("--work", help="keep the runs' files here (default: a temporary directory)")
    parser.add_argument("--json", action="store_true", help="print the figures as one JSON object at the end")
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="bvgeo-outage-") as temporary:
        work = Path(args.work) if args.work else Path(temporary)
        work.mkdir(parents=True, exist_ok=True)
        results = {label: run_track(args, work, label, *rest) for label, *rest in TRACKS}
    if args.json:
        print(json.dumps(results, default=list))


if __name__ == "__main__":
    main()
