"""Reading recorded tracks for replay(): GPX (track and route points with a time)
and CSV (a header naming time/timestamp/time_utc/timestamp_utc/datetime,
lat/latitude and lon/lng/longitude; the time in ISO 8601 or seconds since 1970).
Fixes come out with strictly increasing times, with the quality the file gives
(GPX <hdop> or <pdop>, <sat>, <fix>, <speed>; CSV accuracy, hdop, speed, sats
and mode columns); points without a usable time or position, or not later than
the one before, are skipped and counted."""

import csv
import io
import math
import xml.etree.ElementTree as ElementTree
from datetime import datetime, timezone
from pathlib import Path

from .types import Fix, FixMode

_TIME_COLUMNS = ("time", "timestamp", "time_utc", "timestamp_utc", "datetime", "date_time")
_QUALITY_COLUMNS = {"accuracy": ("accuracy", "accuracy_m", "horizontal_accuracy", "hacc", "hacc_m"),
                    "hdop": ("hdop",), "speed": ("speed", "speed_mps", "speed_ms"),
                    "satellites_used": ("sats", "sats_used", "satellites", "satellites_used", "num_sats"),
                    "mode": ("mode", "fix", "fix_mode")}
_MODES = {"2": FixMode.TWO_D, "2d": FixMode.TWO_D, "3": FixMode.THREE_D, "3d": FixMode.THREE_D,
          "1": FixMode.NO_FIX, "none": FixMode.NO_FIX}


def _quality(raw):
    """Fix keyword arguments from quality texts; what cannot be read stays unknown."""
    out = {}
    for name in ("accuracy", "hdop", "speed"):
        try:
            value = float(raw.get(name) or "")
        except ValueError:
            continue
        if math.isfinite(value) and (value > 0 or (name == "speed" and value >= 0)):
            out[name] = value
    satellites = (raw.get("satellites_used") or "").strip()
    if satellites.isdigit():
        out["satellites_used"] = int(satellites)
    mode = _MODES.get((raw.get("mode") or "").strip().lower())
    if mode is not None:
        out["mode"] = mode
    return out


class TrackError(ValueError):
    """The file is no track that can be played."""


def _parse_time(text):
    text = (text or "").strip()
    if not text:
        return None
    try:
        value = float(text)
        return value if math.isfinite(value) and value >= 0 else None
    except ValueError:
        pass
    if text.endswith(("Z", "z")):
        text = text[:-1] + "+00:00"
    try:
        moment = datetime.fromisoformat(text)
    except ValueError:
        return None
    if moment.tzinfo is None:
        moment = moment.replace(tzinfo=timezone.utc)
    return moment.timestamp()


def _position(lat, lon):
    try:
        latitude, longitude = float(lat), float(lon)
    except (TypeError, ValueError):
        return None
    if not (math.isfinite(latitude) and math.isfinite(longitude)):
        return None
    if not (-90 <= latitude <= 90 and -180 <= longitude <= 180):
        return None
    return latitude, longitude


def _increasing(points):
    """(fixes, skipped) from (lat, lon, time, quality texts) candidates, any of them None."""
    fixes, skipped, last = [], 0, None
    for lat, lon, time, raw in points:
        position = _position(lat, lon)
        when = _parse_time(time) if isinstance(time, str) else time
        quality = _quality(raw)
        if position is None or when is None or (last is not None and when <= last) or \
                quality.get("mode") == FixMode.NO_FIX:
            skipped += 1
            continue
        fixes.append(Fix(position[0], position[1], when, **quality))
        last = when
    return fixes, skipped


def _gpx_points(content):
    try:
        root = ElementTree.fromstring(content)
    except ElementTree.ParseError as error:
        raise TrackError(f"not well-formed GPX: {error}") from None
    for element in root.iter():
        tag = element.tag.rsplit("}", 1)[-1]
        if tag not in ("trkpt", "rtept"):
            continue
        time, raw = None, {}
        for child in element:
            if child.tag.rsplit("}", 1)[-1] == "time":
                time = child.text or ""
        for descendant in element.iter():  # the point's own children and its extensions
            name = descendant.tag.rsplit("}", 1)[-1]
            if name in ("hdop", "pdop", "fix", "sat", "speed", "accuracy", "hacc"):
                raw.setdefault(name, descendant.text or "")
        raw.setdefault("hdop", raw.get("pdop"))
        raw["mode"], raw["satellites_used"] = raw.get("fix"), raw.get("sat")
        raw.setdefault("accuracy", raw.get("hacc"))
        yield element.get("lat"), element.get("lon"), time, raw


def _csv_points(content):
    rows = csv.reader(io.StringIO(content))
    header = [name.strip().lower() for name in next(rows, [])]

    def column(*names):
        for name in names:
            if name in header:
                return header.index(name)
        raise TrackError(f"the CSV header names no {' or '.join(names)} column")

    t, lat, lon = column(*_TIME_COLUMNS), column("lat", "latitude"), column("lon", "lng", "longitude")
    quality = {name: next((header.index(c) for c in names if c in header), None)
               for name, names in _QUALITY_COLUMNS.items()}
    for row in rows:
        if not row or all(not cell.strip() for cell in row):
            continue
        get = lambda index: row[index] if index is not None and index < len(row) else None  # noqa: E731
        yield get(lat), get(lon), get(t) or "", {name: get(index) for name, index in quality.items()}


def read_track(path):
    """(fixes, skipped) of the GPX or CSV file at `path`, recognised by content."""
    content = Path(path).read_text(encoding="utf-8-sig")
    head = content.lstrip()[:4096]
    if head.startswith("<") and "<gpx" in head:
        points = _gpx_points(content)
    elif head.startswith("$") or head.startswith("!"):
        raise TrackError(f"{path}: NMEA logs are not read here; replay them with `bvgeo replay`")
    else:
        points = _csv_points(content)
    fixes, skipped = _increasing(points)
    if not fixes:
        raise TrackError(f"{path}: no fix with a time and a position")
    return fixes, skipped
