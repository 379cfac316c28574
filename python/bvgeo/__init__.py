"""bvgeo for Python: the geofencing library through its C API (libbvgeo.so), with
ctypes from the standard library alone.

    import bvgeo
    with bvgeo.Tracker("/tmp/bvgeo-data") as tracker:
        tracker.configure("my-app", bvgeo.TriggerMode.BOTH, bvgeo.Environment.PRODUCTION)
        tracker.on_trigger = print
        tracker.start()
        tracker.push_location(51.3412, 0.7328)

The library is found through $BVGEO_LIBRARY, beside an installed package, or on
the system's library path.
"""

from . import _native
from .errors import BVGeoError, InvalidArgumentError, ResetError, StateError, VirtualTimeError
from .replay import replay
from .tracker import Tracker
from .tracks import TrackError, read_track
from .types import (ACCURACY_BEST, ACCURACY_HUNDRED_METERS, ACCURACY_NEAREST_TEN_METERS, DISTANCE_FILTER_NONE,
                    Environment, ExtendedOptions, Fix, FixKind, FixMode, MainQueue, Parameters, ReplayResult,
                    ReplaySummary, Trigger, TriggerMode)

__all__ = [
    "ACCURACY_BEST", "ACCURACY_HUNDRED_METERS", "ACCURACY_NEAREST_TEN_METERS", "DISTANCE_FILTER_NONE",
    "BVGeoError", "Environment", "ExtendedOptions", "Fix", "FixKind", "FixMode", "InvalidArgumentError", "MainQueue",
    "Parameters", "ReplayResult", "ReplaySummary", "ResetError", "StateError", "TrackError", "Tracker", "Trigger",
    "TriggerMode", "VirtualTimeError", "read_track", "replay", "version",
]


def version():
    """The library's version, "1.3.0"."""
    return _native.bvgeo_version().decode()


__version__ = version()
