// Stays: what `bvgeo replay --stays` reports. A stay runs from a fence's enter to
// its exit (lingers change nothing); one still open when the track ends is "still
// inside". A stay shorter than two minutes, or one entered less than two minutes
// after the same fence's previous exit, is the flapping the robust rules exist to
// prevent, so both are counted. Built from the triggers the host receives, on the
// main queue; read once the replay is over.
#pragma once

#include <bvgeo/BVTrigger.hpp>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo::cli {

struct Stay {
    std::string fenceId, fenceName;
    std::optional<std::int64_t> enter; // empty: the stay began before the replay
    std::optional<std::int64_t> exit;  // empty: still inside
};

struct StayCounts {
    std::size_t stays = 0;
    std::size_t shorterThanTwoMinutes = 0; // closed stays only
    std::size_t reentriesWithinTwoMinutes = 0;
};

class StayRecorder {
public:
    void add(const BVTrigger& trigger);
    // In the order they began.
    const std::vector<Stay>& stays() const { return stays_; }

private:
    std::vector<Stay> stays_;
};

StayCounts countStays(const std::vector<Stay>& stays);

// "Iwade (gn2645986)  2014-05-10 07:20:55Z  2014-05-10 07:24:58Z  4 min 03 s";
// the exit reads "still inside" and the duration runs to `end`.
std::string stayTextLine(const Stay& stay, std::int64_t end);
// "stays:    12, 1 shorter than 2 minutes, 0 re-entries within 2 minutes of an exit"
std::string stayCountsLine(const StayCounts& counts);
// {"count":..,"shorterThan2Minutes":..,"reentriesWithin2Minutes":..,"list":[{"fenceId",
// "fenceName","enter","exit","seconds"},...]}; times in seconds since 1970, null
// where unknown, "seconds" to `end` for a stay still open.
nlohmann::ordered_json staysJson(const std::vector<Stay>& stays, std::int64_t end);

} // namespace bvgeo::cli
