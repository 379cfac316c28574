// ResolveHold: how long a host whose name did not resolve is left alone. A lookup
// that fails usually fails again (a placeholder host, no network, a typo in a base
// URL), and every fix would otherwise ask again and wait for the resolver. The
// hold starts at kFirstResolveHold seconds and doubles with each failure in a row,
// up to kLongestResolveHold; an answer from the host ends it. Pure functions of
// their arguments (the time included), any thread.
#pragma once

#include <optional>

namespace bvgeo {

inline constexpr double kFirstResolveHold = 30.0;
inline constexpr double kLongestResolveHold = 3600.0;

struct ResolveHold {
    double until = 0.0;   // seconds since 1970: no lookup before this
    double seconds = 0.0; // the length of this hold
};

// The hold after a failed lookup at `now`, following `previous` (none: the first).
ResolveHold holdAfterFailure(const std::optional<ResolveHold>& previous, double now);

// Whether a request at `now` is answered from the hold instead of a lookup.
bool isHeldBack(const ResolveHold& hold, double now);

} // namespace bvgeo
