"""Plain values of the Python API: the library's enumerations, a trigger, the
tuning and extended options, and a replay's result."""

import enum
from dataclasses import dataclass, field
from typing import List, Optional


class Environment(enum.IntEnum):
    PRODUCTION = 0
    STAGING = 1
    QA = 2
    DEVELOPMENT = 3


class TriggerMode(enum.IntEnum):
    BOTH = 0
    LOCAL_ONLY = 1
    REMOTE_ONLY = 2


class MainQueue(enum.IntEnum):
    """Who serves the library's main queue, where trigger callbacks run."""
    OWN_THREAD = 0    # a thread of the library's own
    HOST = 1          # the host: run_main_queue() or run_pending()
    VIRTUAL_TIME = 2  # the host moves the clock; push_location runs what a fix started


class FixKind(enum.IntEnum):
    AUTOMATIC = 0           # as a device's location service would deliver it
    STANDARD = 1            # a standard update only
    SIGNIFICANT_CHANGE = 2  # a significant-change update only


ACCURACY_BEST = -1.0
ACCURACY_NEAREST_TEN_METERS = 10.0
ACCURACY_HUNDRED_METERS = 100.0
DISTANCE_FILTER_NONE = -1.0


@dataclass(frozen=True)
class Trigger:
    """One fence event, with the fields of the C++ BVTrigger."""
    device_id: str
    event: str           # "enter", "exit" or "linger"
    timestamp: int       # seconds since 1970-01-01 UTC
    fence_id: str
    fence_name: str
    location_event: str  # "unknown", "regular" or "significantchanges"


@dataclass
class Parameters:
    """The seven options of setParameters; the defaults are setParameters' own."""
    accuracy: float = ACCURACY_HUNDRED_METERS
    distance_filter: float = 50.0
    cache_expiration: int = 3600
    zone_interval: float = 0.2
    linger_time: int = 300
    max_linger_time: int = 7200
    request_retry_interval: float = 120.0


@dataclass
class ExtendedOptions:
    """What goes beyond the configuration; the defaults keep standard behaviour."""
    durable_delivery: bool = False
    outbox_max_reports: int = 10_000
    outbox_max_age_seconds: int = 7 * 24 * 3600
    max_log_rows: int = 0
    max_location_rows: int = 0
    fence_listing_limit: int = 0
    # polygon fences: a fence's "geometry" decides containment
    polygon_fences: bool = False


@dataclass(frozen=True)
class Fix:
    latitude: float
    longitude: float
    time: float  # seconds since 1970-01-01 UTC


@dataclass
class ReplaySummary:
    fixes_read: int = 0
    fixes_delivered: int = 0  # taken by at least one tracker (the rest were filtered)
    enter: int = 0
    linger: int = 0
    exit: int = 0
    reports_still_queued: int = 0
    device_id: str = ""
    database: str = ""


@dataclass
class ReplayResult:
    triggers: List[Trigger] = field(default_factory=list)
    summary: ReplaySummary = field(default_factory=ReplaySummary)
    console: Optional[List[str]] = None  # the library's console lines, when kept
