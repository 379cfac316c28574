"""bvgeo for Python: the geofencing library through its C API (libbvgeo.so), with
ctypes from the standard library alone.

    import bvgeo
    with bvgeo.Tracker("/tmp/bvgeo-data") as tracker:
        tracker.set_environment_urls(bvgeo.Environment.PRODUCTION, "https://geo.example.org/api/v1/app/",
                                     "https://geo.example.org/")
        tracker.configure("my-app")
        tracker.on_trigger = print
        tracker.start()
        tracker.push_location(51.3412, 0.7328, accuracy=10)
        tracker.settle()
    # leaving the block sends the reports still owed, then closes

The library is found through $BVGEO_LIBRARY, beside the package, where
`cmake --install` put it, or on the system's library path (Debian's libbvgeo1).
"""

from . import _native
from .errors import (BVGeoError, CallbackError, InvalidArgumentError, NotConfiguredError, ResetError, StateError,
                     VirtualTimeError)
from .replay import replay
from .tracker import Tracker
from .tracks import TrackError, read_track
from .types import (ACCURACY_BEST, ACCURACY_HUNDRED_METERS, ACCURACY_NEAREST_TEN_METERS, DISTANCE_FILTER_NONE,
                    CloseResult, Environment, ExtendedOptions, Fix, FixKind, FixMode, MainQueue, Parameters,
                    ReplayResult, ReplaySummary, Trigger, TriggerMode)

__all__ = [
    "ACCURACY_BEST", "ACCURACY_HUNDRED_METERS", "ACCURACY_NEAREST_TEN_METERS", "DISTANCE_FILTER_NONE",
    "BVGeoError", "CallbackError", "CloseResult", "Environment", "ExtendedOptions", "Fix", "FixKind", "FixMode",
    "InvalidArgumentError", "MainQueue", "NotConfiguredError", "Parameters", "ReplayResult", "ReplaySummary",
    "ResetError", "StateError", "TrackError", "Tracker", "Trigger", "TriggerMode", "VirtualTimeError", "read_track",
    "replay", "version",
]


def version() -> str:
    """The library's version, "1.3.0"."""
    return _native.bvgeo_version().decode()


__version__ = version()
