#!/usr/bin/env python3
"""Replays the Kent run (examples/data/kent-run-2014-05-10.gpx, 7,745 fixes over two
hours) through bvgeo from Python, in virtual time, against the reference server,
and prints the triggers as they arrive and a summary.

    python3 examples/python/replay_kent.py [--bvgeo PATH] [--server URL]

Without --server it builds the zone files of examples/data/kent-places.csv and
serves them with `bvgeo serve` on a free loopback port. Run from a source tree
after `scripts/test.sh` (or a default build) it finds the package, the library and
the program there; elsewhere set PYTHONPATH, BVGEO_LIBRARY and --bvgeo.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from datetime import datetime, timezone
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DATA = ROOT / "examples" / "data"
BUILD = ROOT / "build" / "default"

if (ROOT / "python" / "bvgeo").is_dir():
    sys.path.insert(0, str(ROOT / "python"))
if (BUILD / "src" / "libbvgeo.so").exists():
    os.environ.setdefault("BVGEO_LIBRARY", str(BUILD / "src" / "libbvgeo.so"))

import bvgeo  # noqa: E402


def line(trigger):
    when = datetime.fromtimestamp(trigger.timestamp, timezone.utc).strftime("%Y-%m-%d %H:%M:%SZ")
    return f"{when}  {trigger.event:<7}{trigger.fence_name} ({trigger.fence_id})"


def serve(program, work):
    """Builds the Kent zones and starts `bvgeo serve`; (process, base URL)."""
    subprocess.run([program, "zones", "build", str(DATA / "kent-places.csv"), "--out", str(work / "zones"),
                    "--app-id", "demo"], check=True, stdout=subprocess.DEVNULL)
    server = subprocess.Popen([program, "serve", "--root", str(work / "zones"), "--port", "0", "--quiet"],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    found = re.search(r"http://127\.0\.0\.1:\d+/", server.stdout.readline())
    if not found:
        server.terminate()
        sys.exit("replay_kent: the server did not start")
    return server, found.group(0)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bvgeo", help="the bvgeo program (default: on PATH, else the default build's)")
    parser.add_argument("--server", help="base URL of a running reference server serving app id 'demo'")
    args = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="bvgeo-kent-") as scratch:
        work = Path(scratch)
        server = None
        base = args.server
        if base is None:
            program = args.bvgeo or shutil.which("bvgeo") or str(BUILD / "apps" / "bvgeo")
            server, base = serve(program, work)
        try:
            print(f"replaying {DATA / 'kent-run-2014-05-10.gpx'} against {base}")
            result = bvgeo.replay(DATA / "kent-run-2014-05-10.gpx", app_id="demo",
                                  api_base=base + "api/v1/app/", assets_base=base,
                                  documents_directory=work / "data",
                                  on_trigger=lambda trigger: print(line(trigger), flush=True))
        finally:
            if server is not None:
                server.terminate()
                server.wait()
        s = result.summary
        print(f"\nfixes:    {s.fixes_read} read, {s.fixes_delivered} delivered")
        print(f"triggers: {s.enter} enter, {s.linger} linger, {s.exit} exit")
        print(f"reports:  {s.reports_still_queued} still queued")
        print(f"device:   {s.device_id}")


if __name__ == "__main__":
    main()
