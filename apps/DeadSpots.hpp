// DeadSpots: the stretches of track time during which a replayed device has no
// network (`bvgeo replay --offline FROM,TO`, `--offline-file FILE`). Inside them the
// replay's platform reports NotConnected and every request fails at once, as on a
// device in a tunnel; outside them the network (the loopback server) is there and
// reported as WiFi. Times are the virtual clock's, so the dead spots fall on the
// track's own timestamps. Immutable once made; any thread.
#pragma once

#include <bvgeo/platform/Reachability.hpp>

#include <memory>
#include <string>
#include <vector>

namespace bvgeo::cli {

struct TimeRange {
    double from = 0.0; // seconds since 1970, both ends included
    double to = 0.0;
};

// "FROM,TO", each end an ISO 8601 UTC time ("2014-05-10T07:40:00Z") or seconds
// since 1970. Throws UsageError naming `what` when it is neither or TO is before FROM.
TimeRange parseTimeRange(const std::string& text, const std::string& what);

// One range per line; blank lines and lines starting with '#' are skipped. Throws
// UsageError naming the file and line of the first bad one, or an unreadable file.
std::vector<TimeRange> readTimeRanges(const std::string& path);

class DeadSpots {
public:
    // Overlapping and touching ranges are merged.
    explicit DeadSpots(std::vector<TimeRange> ranges);

    bool contains(double time) const;
    const std::vector<TimeRange>& ranges() const { return ranges_; }

    // The replay's reachability: NotConnected inside a dead spot (by the installed
    // platform's clock), WiFi elsewhere.
    static std::shared_ptr<Reachability> reachability(std::shared_ptr<const DeadSpots> spots);

private:
    std::vector<TimeRange> ranges_; // sorted, disjoint
};

} // namespace bvgeo::cli
