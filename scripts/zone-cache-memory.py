#!/usr/bin/env python3
"""Peak memory of the zone cache: a replay that visits 64 zones of 1,000 fences each,
twice over, with --zone-cache 64 (every zone's fences held in memory by the end)
and without the cache, measured as the peak resident set size of the `bvgeo replay`
process (what `/usr/bin/time -v` reports as "Maximum resident set size"), the
median of --runs runs each.

The fences are made up: 1,000 circles of 30 m per cell of the 0.05 degree grid,
8 x 8 cells from 50 N 1 E, each well inside its cell so that every zone file lists
exactly 1,000. The track visits every cell's centre for three fixes a minute apart,
in rows, then does it all again. Only 127.0.0.1 is contacted.

usage: scripts/zone-cache-memory.py [--bvgeo build/default/apps/bvgeo] [--runs 3] [--work DIR]
"""

import argparse
import random
import re
import resource
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
INTERVAL = 0.05
CELLS = 8  # per side
FENCES_PER_CELL = 1000
SOUTH, WEST = 50.0, 1.0


def places(path):
    rng = random.Random(21)
    margin = 0.004  # about 300 m: a 30 m circle never reaches the next cell
    with open(path, "w") as out:
        out.write("id,name,lat,lon,radius\n")
        for row in range(CELLS):
            for column in range(CELLS):
                south, west = SOUTH + row * INTERVAL, WEST + column * INTERVAL
                for n in range(FENCES_PER_CELL):
                    lat = rng.uniform(south + margin, south + INTERVAL - margin)
                    lon = rng.uniform(west + margin, west + INTERVAL - margin)
                    out.write(f"f-{row}-{column}-{n},Place {row}.{column}.{n},{lat:.6f},{lon:.6f},30\n")


def track(path):
    with open(path, "w") as out:
        out.write("time,lat,lon\n")
        t = 1_400_000_000
        for _ in range(2):
            for row in range(CELLS):
                columns = range(CELLS) if row % 2 == 0 else reversed(range(CELLS))
                for column in columns:
                    lat = SOUTH + (row + 0.5) * INTERVAL
                    lon = WEST + (column + 0.5) * INTERVAL
                    for step in range(3):
                        out.write(f"{t},{lat + step * 0.0001:.6f},{lon:.6f}\n")
                        t += 60


def peak_rss_kib(command):
    """Runs `command` under /usr/bin/time -v when there is one, else reads the
    children's ru_maxrss (the same figure); returns KiB and the program's output."""
    if Path("/usr/bin/time").is_file():
        done = subprocess.run(["/usr/bin/time", "-v", *command], capture_output=True, text=True)
        found = re.search(r"Maximum resident set size \(kbytes\): (\d+)", done.stderr)
        if done.returncode != 0 or not found:
            sys.exit(f"zone-cache-memory: {' '.join(command)} failed:\n{done.stderr[-2000:]}")
        return int(found.group(1)), done.stdout
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    return max(after, before), done.stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bvgeo", default=str(ROOT / "build/default/apps/bvgeo"))
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--work", help="keep the files here (default: a temporary directory)")
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="bvgeo-zone-memory-") as temporary:
        work = Path(args.work or temporary)
        work.mkdir(parents=True, exist_ok=True)
        places(work / "places.csv")
        track(work / "track.csv")
        built = subprocess.run([args.bvgeo, "zones", "build", str(work / "places.csv"), "--out", str(work / "server"),
                                "--app-id", "memory", "--interval", str(INTERVAL)], capture_output=True, text=True,
                               check=True)
        print(built.stdout.strip())
        server = subprocess.Popen([args.bvgeo, "serve", "--root", str(work / "server"), "--port", "0", "--quiet"],
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        try:
            url = re.search(r"http://127\.0\.0\.1:\d+/", server.stdout.readline()).group(0)
            for cache in (0, CELLS * CELLS):
                peaks = []
                for run in range(args.runs):
                    data = work / f"device-{cache}-{run}"
                    peak, output = peak_rss_kib(
                        [args.bvgeo, "replay", str(work / "track.csv"), "--app-id", "memory", "--zone-interval",
                         str(INTERVAL), "--api-base", url + "api/v1/app/", "--assets-base", url, "--data-dir",
                         str(data), "--mode", "local", "--zone-cache", str(cache)])
                    peaks.append(peak)
                zones = re.search(r"zones: +.*", output)
                print(f"--zone-cache {cache:2d}: peak RSS {statistics.median(peaks) / 1024:.1f} MiB (median of "
                      f"{args.runs}: {', '.join(f'{p / 1024:.1f}' for p in peaks)})"
                      + (f"; {zones.group(0)}" if zones else ""))
        finally:
            server.terminate()
            server.wait(timeout=30)


if __name__ == "__main__":
    main()
