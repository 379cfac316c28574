"""Plain values of the Python API: the library's enumerations, a trigger, the
tuning and extended options, and the results of closing and of a replay."""

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
    """The seven options of setParameters. The defaults are the tracker's starting
    configuration, so Parameters(linger_time=600) changes the linger time only."""
    accuracy: float = ACCURACY_NEAREST_TEN_METERS
    distance_filter: float = 30.0
    cache_expiration: int = 3600
    zone_interval: float = 0.2
    linger_time: int = 300
    max_linger_time: int = 7200
    request_retry_interval: float = 30.0


@dataclass
class ExtendedOptions:
    """What goes beyond the configuration; the defaults keep standard behaviour."""
    durable_delivery: bool = False
    outbox_max_reports: int = 10_000
    outbox_max_age_seconds: int = 7 * 24 * 3600
    max_log_rows: int = 0
    max_location_rows: int = 0
    fence_listing_limit: int = 0
    # Zone cache: zone files of up to this many zones kept on the device, answering
    # when a download fails; with prefetch_distance (metres) the neighbouring cells
    # are fetched while a position is that close to its cell's edge or corner.
    zone_cache: int = 0
    prefetch_distance: float = 0.0

    # Robust triggers: hysteresis, the fixes' accuracy, confirmation and outlier
    # rejection (TriggerFilterOptions in C++); the tunables count only when it is on.
    robust_triggers: bool = False
    exit_buffer_metres: float = 30.0
    accuracy_cap_metres: float = 50.0
    max_accuracy_metres: float = 100.0
    assumed_accuracy_metres: float = 10.0
    hdop_metres: float = 5.0
    max_speed: float = 100.0
    confirm_fixes: int = 3
    confirm_seconds: int = 10
    minimum_dwell_seconds: int = 120
    use_two_dimensional_fixes: bool = False

    # Polygon fences: a fence's "geometry" decides containment.
    polygon_fences: bool = False


@dataclass(frozen=True)
class CloseResult:
    """What close() left: trigger reports the server had not taken, and how many of
    them durable delivery keeps in the outbox for the next start (the rest are lost)."""
    reports_owed: int = 0
    reports_in_outbox: int = 0

    @property
    def reports_lost(self) -> int:
        return self.reports_owed - self.reports_in_outbox


class FixMode(enum.IntEnum):
    UNKNOWN = 0
    NO_FIX = 1
    TWO_D = 2
    THREE_D = 3


@dataclass(frozen=True)
class Fix:
    latitude: float
    longitude: float
    time: float  # seconds since 1970-01-01 UTC
    # What the source said of the fix's quality; negative (or UNKNOWN) where it said nothing.
    accuracy: float = -1.0  # metres
    hdop: float = -1.0
    speed: float = -1.0     # metres per second
    satellites_used: int = -1
    mode: FixMode = FixMode.UNKNOWN


@dataclass
class ReplaySummary:
    """A replay's counts; str() gives the summary `bvgeo replay` prints."""
    fixes_read: int = 0
    fixes_delivered: int = 0  # taken by at least one tracker (the rest were filtered)
    enter: int = 0
    linger: int = 0
    exit: int = 0
    reports_still_queued: int = 0
    device_id: str = ""
    database: str = ""
    fixes_skipped: int = 0     # not usable (no time, out of order, bad position)
    fixes_accepted: int = 0    # rows added to the location history
    requests_sent: int = 0     # "Request Completed Successfully: " lines
    requests_retried: int = 0  # "Request Error: " lines
    outbox_reports: Optional[int] = None  # with durable delivery: reports still owed in the outbox

    def __str__(self) -> str:
        outbox = f", {self.outbox_reports} in the outbox" if self.outbox_reports is not None else ""
        return (f"fixes:    {self.fixes_read} read, {self.fixes_skipped} skipped, {self.fixes_accepted} accepted\n"
                f"triggers: {self.enter} enter, {self.linger} linger, {self.exit} exit\n"
                f"requests: {self.requests_sent} sent, {self.requests_retried} retried, "
                f"{self.reports_still_queued} still queued{outbox}\n"
                f"database: {self.database}")


@dataclass
class ReplayResult:
    triggers: List[Trigger] = field(default_factory=list)
    summary: ReplaySummary = field(default_factory=ReplaySummary)
    console: Optional[List[str]] = None  # the library's console lines, when kept
