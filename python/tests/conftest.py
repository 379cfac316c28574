"""Fixtures: a reference zone/trigger server (`bvgeo serve`) on loopback serving one
fence, "Harbour Square", 200 m around 51.5 N 0.1 E, for the application "py";
and a fresh documents directory per test. The bvgeo program comes from
$BVGEO_CLI (set by ctest), else from the default build."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
FENCE_LAT, FENCE_LON = 51.5, 0.1
METRES_PER_DEGREE_LON = 69_300.0  # at 51.5 N


def east(metres):
    """The longitude `metres` east of the fence centre."""
    return FENCE_LON + metres / METRES_PER_DEGREE_LON


def _cli():
    for candidate in (os.environ.get("BVGEO_CLI"), str(ROOT / "build/default/apps/bvgeo"), shutil.which("bvgeo")):
        if candidate and Path(candidate).is_file():
            return candidate
    pytest.fail("no bvgeo program: set BVGEO_CLI or build the default preset")


@pytest.fixture(scope="session")
def server(tmp_path_factory):
    """The server's base URL, "http://127.0.0.1:PORT/"."""
    cli = _cli()
    work = tmp_path_factory.mktemp("server")
    places = work / "places.csv"
    places.write_text(f"id,name,lat,lon,radius\npy-1,Harbour Square,{FENCE_LAT},{FENCE_LON},200\n")
    subprocess.run([cli, "zones", "build", str(places), "--out", str(work / "zones"), "--app-id", "py"],
                   check=True, capture_output=True)
    process = subprocess.Popen([cli, "serve", "--root", str(work / "zones"), "--port", "0", "--quiet"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        first = process.stdout.readline()
        found = re.search(r"http://127\.0\.0\.1:\d+/", first)
        assert found, f"the server said: {first!r}"
        yield found.group(0)
    finally:
        process.terminate()
        process.wait(timeout=30)


@pytest.fixture
def data_dir(tmp_path):
    return tmp_path / "data"
