// Replay: plays a recorded track through the library as a host application would
// (configure, optional tuning, delegate, start; stop at the end), in virtual time
// by default, and reports the triggers and a summary. Used by `bvgeo replay` and
// by the demo. Runs on the calling thread; installs its own platform, so it is
// called once per process.
#pragma once

#include "Args.hpp"
#include "DeadSpots.hpp"
#include "Stays.hpp"

#include <bvgeo/TriggerFilterOptions.hpp>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo::cli {

struct ReplayOptions {
    std::string track;
    std::string appId = "demo";
    int environment = 3; // development
    std::optional<std::string> apiBase, assetsBase;
    int mode = 0; // both
    std::string dataDir = "./bvgeo-data";
    std::optional<std::string> date; // for NMEA logs without one
    // Tuning: when any is set, setParameters gets these and configOptions' defaults.
    std::optional<double> accuracy, distanceFilter, zoneInterval, retryInterval;
    std::optional<std::int64_t> cacheExpiration, lingerTime, maxLingerTime;
    // Storage limits (ExtendedOptions), 0: none.
    std::size_t maxLogRows = 0, maxLocationRows = 0, fenceListingLimit = 0;
    bool realtime = false;
    double speed = 0.0; // 0: as fast as the work allows
    double drain = 600.0;
    bool durableDelivery = false;
    bool json = false;
    bool verbose = false;

    // Fences without a network (ExtendedOptions), a preload, and a replay's dead spots.
    std::size_t zoneCache = 0;
    double prefetchDistance = 0.0;
    std::optional<std::string> preload;
    std::vector<TimeRange> offline;
    // Robust triggers (ExtendedOptions::triggerFilter), and the stays report.
    TriggerFilterOptions triggerFilter;
    bool stays = false;
    // Polygon fences (ExtendedOptions::polygonFences).
    bool polygonFences = false;
};

// Options shared by replay and live tracking (everything but the track itself).
std::vector<OptionDecl> hostOptionDecls();
// Throws UsageError for a bad option or value.
void applyHostOptions(const Args& args, ReplayOptions& options);
ReplayOptions parseReplayOptions(const std::vector<std::string>& words);

struct ReplaySummary {
    std::size_t fixesRead = 0, fixesSkipped = 0, fixesAccepted = 0;
    std::size_t enter = 0, linger = 0, exit = 0;
    std::size_t requestsSent = 0, requestsRetried = 0, requestsQueued = 0;
    std::optional<std::size_t> outboxReports; // with durable delivery: reports still owed
    std::string database;

    // With a zone cache or dead spots.
    struct Zones {
        std::size_t positionsWithoutFences = 0; // fence requests that got no list
        std::size_t prefetchRequests = 0;
        std::size_t cached = 0;                 // zones in the cache at the end
    };
    std::optional<Zones> zones;
    struct Offline {
        std::size_t deadSpots = 0;  // after merging overlaps
        std::size_t positions = 0;  // accepted positions inside them
    };
    std::optional<Offline> offline;
    // With --stays: the stays of the triggers received, and when the track ended.
    std::optional<std::vector<Stay>> stays;
    std::int64_t trackEnd = 0;
};

// 0 when the track was played; 2 for an unusable track; 1 when the run could not
// go on (data directory not writable, library refused the configuration).
int runReplay(const ReplayOptions& options, std::ostream& out, ReplaySummary* summary = nullptr);

extern const char* const kReplayHelp;

} // namespace bvgeo::cli
