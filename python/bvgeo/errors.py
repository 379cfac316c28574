"""Exceptions raised for the C API's status codes."""


class BVGeoError(Exception):
    """A bvgeo call failed; `code` is the C API's bvgeo_status."""

    def __init__(self, message: str, code: int) -> None:
        super().__init__(message)
        self.code = code


class InvalidArgumentError(BVGeoError, ValueError):
    """A bad argument (out of range, not UTF-8, wrong type); nothing changed."""


class StateError(BVGeoError, RuntimeError):
    """The call does not fit the moment: no tracker open, another one open, the
    wrong main-queue mode, or a call from inside a trigger callback."""


class NotConfiguredError(StateError):
    """start() before a configure() that was accepted (the library logged
    "BVGeoTracker is not configured! Please configure before calling start()")."""


class CallbackError(BVGeoError):
    """A callable the host gave the tracker (on_trigger, console) raised. The
    library went on; the host's exception is the __cause__, raised by the next
    call of the host's own thread into the tracker."""


class ResetError(BVGeoError):
    """reset() refused: code 1000 (the archive exists), 1001 (empty name) or 1002
    (not a plain file name), as BVErrorCodes."""


class VirtualTimeError(BVGeoError, TimeoutError):
    """Virtual time: the library kept busy past its bounds (a transfer hung)."""
