#include "Replay.hpp"

#include "CliConsole.hpp"
#include "HostSetup.hpp"
#include "RobustTriggerOptions.hpp"
#include "VirtualTimeHost.hpp"

#include "datastore/BV1Database.hpp"
#include "datastore/DatabaseConnection.hpp"
#include "platform/SharedInstance.hpp"
#include "request/Outbox.hpp"
#include "fence/FenceManager.hpp"
#include "request/HTTPClient.hpp"
#include "request/RequestQueue.hpp"
#include "track/TrackReader.hpp"
#include "zone/ZoneCache.hpp"
#include "zone/ZonePrefetcher.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/platform/Platform.hpp>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <thread>

namespace bvgeo::cli {

const char* const kReplayHelp = R"(usage: bvgeo replay TRACK [options]

Plays a recorded track (GPX, NMEA 0183 or CSV, recognised by content) through the
library as a host application would, in virtual time unless told otherwise.

  --app-id ID            application id (default demo)
  --env NAME|N           production, staging, qa, development or 0 to 3 (default development)
  --api-base URL         trigger API base URL of that environment
  --assets-base URL      zone-file base URL of that environment
  --mode both|local|remote   trigger mode (default both)
  --data-dir DIR         documents directory (default ./bvgeo-data)
  --date YYYY-MM-DD      date of an NMEA log that carries none
  --accuracy M  --distance-filter M|none  --cache-expiration S  --zone-interval DEG
  --linger-time S  --max-linger-time S  --retry-interval S
                         tuning; any of them calls setParameters, the rest keep their defaults
  --durable-delivery     keep trigger reports in BVGOutbox.sqlite until the server has
                         them, and send what an earlier run left there
  --max-log-rows N       keep only the newest N log rows (default: all)
  --max-location-rows N  keep only the newest N location rows (default: all)
  --fence-listing-limit N  name at most N fences in a "Fences from ...: " log line
  --zone-cache N         keep the zone files of up to N zones in BVGZoneCache/ beside the
                         database: a fresh copy answers a zone change without a request,
                         any copy answers when a download fails (default 0: none)
  --prefetch-distance M  with --zone-cache: fetch the neighbouring cells in the background
                         while a position is within M metres of its cell's edge or corner
  --preload DIR          with --zone-cache: fill the cache from DIR as `bvgeo zones build
                         --out DIR` wrote it, before tracking starts
  --offline FROM,TO      a dead spot: between these track times (ISO 8601 UTC or seconds
                         since 1970) the device has no network and every request fails;
                         repeatable; the summary counts the positions that found no fences
  --offline-file FILE    dead spots from a file, one FROM,TO per line ('#' comments)
  --polygon-fences       a fence's "geometry" (GeoJSON Polygon or MultiPolygon) decides
                         whether a position is inside it, instead of its circle
  --realtime             play at the track's own pace
  --speed N              play N times faster than the track
  --drain S              after the last fix, let track time run on until the request
                         queue is empty or S seconds have passed (default 600)
  --json                 one JSON object per trigger on standard output, then a summary object
  --verbose              echo the library's log lines and prints on standard error
  --stays                end with one line per stay (enter, exit or "still inside",
                         duration) and how many were shorter than 2 minutes; with
                         --json, the same in the summary object
  --robust-triggers      decide enter and exit with hysteresis, the fixes' accuracy,
                         confirmation and outlier rejection (defaults below); each
                         option after it sets one tunable and turns the rules on
  --exit-buffer M        leave a fence only this far beyond its rim (default 30)
  --accuracy-cap M       count a fix's accuracy up to this (default 50)
  --max-accuracy M       a fix less accurate than this changes no fence (default 100)
  --assumed-accuracy M   accuracy of a fix that gives none (default 10)
  --hdop-metres M        metres of accuracy per unit of HDOP (default 5)
  --max-speed MPS        a fix implying more than this many m/s changes no fence (default 100)
  --confirm-fixes N      fixes in a row on the new side before enter or exit (default 3)
  --confirm-seconds S    ... spanning at least this long (default 10)
  --minimum-dwell S      a fence keeps each state at least this long (default 120)
  --use-2d-fixes         let 2D fixes change fences (by default they do not)

example:
  bvgeo serve --root zones &
  bvgeo replay examples/data/kent-run-2014-05-10.gpx --api-base http://127.0.0.1:8080/api/v1/app/ \
      --assets-base http://127.0.0.1:8080/ --linger-time 300
)";

namespace {

// Fixes played in virtual time between two commits of the database.
constexpr std::size_t kFixesPerCommit = 64;

std::vector<OptionDecl> replayOnlyDecls() {
    return {{"date"}, {"realtime", false}, {"speed"}, {"drain"}, {"offline"}, {"offline-file"}, {"stays", false}};
}

// Prints each trigger as the host receives it, on the main queue.
class PrintingDelegate final : public BVGeoTrackerDelegate {
public:
    PrintingDelegate(std::ostream& out, bool json, ReplaySummary& summary, StayRecorder* stays = nullptr)
        : out_(out), json_(json), summary_(summary), stays_(stays) {}

    void BVGeoTrackerOnFenceTriggered(BVGeoTracker&, std::shared_ptr<BVTrigger> trigger) override {
        switch (trigger->event) {
        case TriggerType::Enter: ++summary_.enter; break;
        case TriggerType::Linger: ++summary_.linger; break;
        case TriggerType::Exit: ++summary_.exit; break;
        }
        out_ << (json_ ? triggerJsonLine(*trigger) : triggerTextLine(*trigger)) << '\n';
        out_.flush();
        if (stays_) stays_->add(*trigger);
    }

private:
    std::ostream& out_;
    bool json_;
    ReplaySummary& summary_;
    StayRecorder* stays_;
};

class Progress {
public:
    Progress(std::size_t total, bool enabled) : total_(total), enabled_(enabled) {}
    void update(std::size_t done) {
        if (!enabled_ || total_ == 0) return;
        const int percent = static_cast<int>(done * 100 / total_);
        if (percent == shown_) return;
        shown_ = percent;
        const int filled = percent / 4;
        std::fprintf(stderr, "\r[%s%s] %3d%% %zu/%zu fixes", std::string(static_cast<std::size_t>(filled), '#').c_str(),
                     std::string(static_cast<std::size_t>(25 - filled), ' ').c_str(), percent, done, total_);
        if (done == total_) std::fputc('\n', stderr);
        std::fflush(stderr);
    }

private:
    std::size_t total_;
    bool enabled_;
    int shown_ = -1;
};

std::int64_t countRows(const std::string& sql, const SqlValues& args = {}) {
    std::int64_t count = 0;
    BV1Database().getDatabase().executeQuery(sql, args,
                                             [&](const DatabaseRow& row) { count = row.int64ForColumnIndex(0); });
    return count;
}

std::int64_t requestLines(std::int64_t afterId, std::int64_t upToId, const std::string& text) {
    return countRows(
        "SELECT count(*) FROM log WHERE id > ? AND id <= ? AND category = 'REQUESTS' AND instr(message, ?) > 0",
        {afterId, upToId, text});
}

// Request outcomes as logged since it was made. Counted after every step when the
// log keeps only its newest rows, so none is trimmed away uncounted.
class RequestTally {
public:
    RequestTally() : counted_(newestLogId()) {}
    void update() {
        const auto newest = newestLogId();
        sent_ += requestLines(counted_, newest, "Request Completed Successfully: ");
        retried_ += requestLines(counted_, newest, "Request Error: ");
        counted_ = newest;
    }
    std::size_t sent() const { return static_cast<std::size_t>(sent_); }
    std::size_t retried() const { return static_cast<std::size_t>(retried_); }

private:
    static std::int64_t newestLogId() { return countRows("SELECT coalesce(max(id), 0) FROM log"); }
    std::int64_t counted_, sent_ = 0, retried_ = 0;
};

// The fix as a location source would deliver it, with what the file said of its quality.
Location locationOf(const TrackFix& fix) {
    Location location{fix.latitude, fix.longitude, fix.timestamp};
    location.horizontalAccuracy = fix.quality.accuracy;
    location.speed = fix.quality.speed;
    location.hdop = fix.quality.hdop;
    location.satellitesUsed = fix.quality.satellites;
    location.fixMode = fix.quality.mode;
    return location;
}

void printSummary(std::ostream& out, const ReplaySummary& s, bool json) {
    if (json) {
        nlohmann::ordered_json summary{
            {"summary", true},
            {"fixes", {{"read", s.fixesRead}, {"skipped", s.fixesSkipped}, {"accepted", s.fixesAccepted}}},
            {"triggers", {{"enter", s.enter}, {"linger", s.linger}, {"exit", s.exit}}},
            {"requests", {{"sent", s.requestsSent}, {"retried", s.requestsRetried}, {"queued", s.requestsQueued}}},
            {"database", s.database}};
        if (s.outboxReports) summary["requests"]["outbox"] = *s.outboxReports;
        if (s.zones)
            summary["zones"] = {{"positionsWithoutFences", s.zones->positionsWithoutFences},
                                {"prefetchRequests", s.zones->prefetchRequests},
                                {"cached", s.zones->cached}};
        if (s.offline) summary["offline"] = {{"deadSpots", s.offline->deadSpots}, {"positions", s.offline->positions}};
        if (s.stays) summary["stays"] = staysJson(*s.stays, s.trackEnd);
        out << summary.dump() << '\n';
    } else {
        out << "\nfixes:    " << s.fixesRead << " read, " << s.fixesSkipped << " skipped, " << s.fixesAccepted
            << " accepted\n"
            << "triggers: " << s.enter << " enter, " << s.linger << " linger, " << s.exit << " exit\n"
            << "requests: " << s.requestsSent << " sent, " << s.requestsRetried << " retried, " << s.requestsQueued
            << " still queued" << (s.outboxReports ? ", " + std::to_string(*s.outboxReports) + " in the outbox" : "")
            << "\n";
        if (s.offline)
            out << "offline:  " << s.offline->deadSpots << " dead spot" << (s.offline->deadSpots == 1 ? "" : "s")
                << ", " << s.offline->positions << " positions inside\n";
        if (s.zones)
            out << "zones:    " << s.zones->positionsWithoutFences << " positions found no fences, "
                << s.zones->prefetchRequests << " prefetch requests, " << s.zones->cached << " zones cached\n";
        out << "database: " << s.database << '\n';
        if (s.stays) {
            for (const Stay& stay : *s.stays) out << "stay      " << stayTextLine(stay, s.trackEnd) << '\n';
            out << stayCountsLine(countStays(*s.stays)) << '\n';
        }
    }
    out.flush();
}

} // namespace

std::vector<OptionDecl> hostOptionDecls() {
    std::vector<OptionDecl> decls{
        {"app-id"},      {"env"},          {"api-base"},        {"assets-base"},    {"mode"},
        {"data-dir"},    {"accuracy"},     {"distance-filter"}, {"cache-expiration"}, {"zone-interval"},
        {"linger-time"}, {"max-linger-time"}, {"retry-interval"}, {"durable-delivery", false},
        {"json", false}, {"verbose", false}, {"help", false}, {"max-log-rows"}, {"max-location-rows"},
        {"fence-listing-limit"},
        // Fences without a network.
        {"zone-cache"}, {"prefetch-distance"}, {"preload"},
        // Polygon fences.
        {"polygon-fences", false}};
    // Robust triggers.
    for (auto& decl : robustTriggerOptionDecls()) decls.push_back(decl);
    return decls;
}

void applyHostOptions(const Args& args, ReplayOptions& o) {
    o.appId = args.value("app-id", o.appId);
    if (auto env = args.value("env")) o.environment = parseEnvironment(*env);
    if (auto mode = args.value("mode")) o.mode = parseTriggerMode(*mode);
    o.apiBase = args.value("api-base");
    o.assetsBase = args.value("assets-base");
    o.dataDir = args.value("data-dir", o.dataDir);
    if (auto accuracy = args.value("accuracy")) o.accuracy = parseAccuracy(*accuracy);
    if (auto filter = args.value("distance-filter")) o.distanceFilter = parseDistanceFilter(*filter);
    o.cacheExpiration = args.integer("cache-expiration");
    o.zoneInterval = args.number("zone-interval");
    if (o.zoneInterval && *o.zoneInterval <= 0) throw UsageError("--zone-interval must be greater than 0");
    o.lingerTime = args.integer("linger-time");
    o.maxLingerTime = args.integer("max-linger-time");
    o.retryInterval = args.number("retry-interval");
    o.durableDelivery = args.has("durable-delivery");
    o.json = args.has("json");
    o.verbose = args.has("verbose");
    auto count = [&](const char* name) -> std::size_t {
        const auto value = args.integer(name).value_or(0);
        if (value < 0) throw UsageError(std::string("--") + name + " must not be negative");
        return static_cast<std::size_t>(value);
    };
    o.maxLogRows = count("max-log-rows");
    o.maxLocationRows = count("max-location-rows");
    o.fenceListingLimit = count("fence-listing-limit");
    // Fences without a network.
    o.zoneCache = count("zone-cache");
    if (auto distance = args.number("prefetch-distance")) {
        if (*distance < 0) throw UsageError("--prefetch-distance must not be negative");
        o.prefetchDistance = *distance;
    }
    o.preload = args.value("preload");
    if ((o.prefetchDistance > 0 || o.preload) && o.zoneCache == 0)
        throw UsageError(std::string(o.preload ? "--preload" : "--prefetch-distance") + " needs --zone-cache N");
    // Robust triggers.
    applyRobustTriggerOptions(args, o.triggerFilter);
    // Polygon fences.
    o.polygonFences = args.has("polygon-fences");
}

ReplayOptions parseReplayOptions(const std::vector<std::string>& words) {
    auto decls = hostOptionDecls();
    for (auto& decl : replayOnlyDecls()) decls.push_back(decl);
    Args args(words, decls);
    ReplayOptions o;
    applyHostOptions(args, o);
    if (args.positionals().size() != 1) throw UsageError("replay needs exactly one TRACK file");
    o.track = args.positionals()[0];
    o.date = args.value("date");
    o.realtime = args.has("realtime");
    if (auto speed = args.number("speed")) {
        if (*speed <= 0) throw UsageError("--speed must be greater than 0");
        o.speed = *speed;
    }
    if (o.realtime && o.speed == 0.0) o.speed = 1.0;
    o.stays = args.has("stays");
    if (auto drain = args.number("drain")) {
        if (*drain < 0) throw UsageError("--drain must not be negative");
        o.drain = *drain;
    }
    for (const auto& range : args.values("offline")) o.offline.push_back(parseTimeRange(range, "--offline"));
    if (auto file = args.value("offline-file"))
        for (const auto& range : readTimeRanges(*file)) o.offline.push_back(range);
    return o;
}

int runReplay(const ReplayOptions& o, std::ostream& out, ReplaySummary* summaryOut) {
    TrackReadOptions readOptions;
    readOptions.date = o.date;
    readOptions.now = static_cast<double>(std::time(nullptr));
    TrackReadResult track = readTrackFile(o.track, readOptions);
    // JSON mode keeps every line of the library's own output, on standard error.
    auto console = std::make_shared<CliConsole>(o.verbose, o.json || o.verbose);
    if (!track.ok) {
        std::cerr << "bvgeo: " << track.error << '\n';
        return 2;
    }
    for (const auto& warning : track.warnings) console->note("warning: " + warning);

    if (auto problem = prepareDataDirectory(o.dataDir)) {
        std::cerr << "bvgeo: " << *problem << '\n';
        return 1;
    }

    ReplaySummary summary;
    summary.fixesSkipped = track.skippedNoTime + track.skippedOutOfOrder + track.skippedBadCoordinates +
                           track.skippedBadChecksum + track.skippedBadTime + track.skippedNoFix;
    summary.fixesRead = track.fixes.size() + summary.fixesSkipped;

    VirtualTimeHost host(o.dataDir, track.fixes.front().timestamp, console);
    // With a zone cache or dead spots the network is the replay's own: there, except
    // in a dead spot.
    std::shared_ptr<const DeadSpots> deadSpots;
    if (o.zoneCache || !o.offline.empty()) deadSpots = std::make_shared<const DeadSpots>(o.offline);
    host.install(deadSpots ? DeadSpots::reachability(deadSpots) : nullptr);
    if (deadSpots && !deadSpots->ranges().empty())
        HTTPClient::sharedInstance().setNetworkDown(
            [deadSpots] { return deadSpots->contains(platform().clock->currentTime()); });
    StayRecorder stays;
    auto delegate = std::make_shared<PrintingDelegate>(out, o.json, summary, o.stays ? &stays : nullptr);
    if (auto problem = startHost(o, delegate)) {
        std::cerr << "bvgeo: " << *problem << '\n';
        return 1;
    }
    host.settle();

    RequestTally requests;
    // Keys, not counts: --max-location-rows may trim the oldest rows meanwhile.
    const std::int64_t locationsBefore = countRows("SELECT coalesce(max(id), 0) FROM locations");

    Progress progress(track.fixes.size(),
                      !o.json && ::isatty(STDERR_FILENO) && track.fixes.back().timestamp - track.fixes.front().timestamp > 5);
    const auto wallStart = std::chrono::steady_clock::now();
    const double trackStart = track.fixes.front().timestamp;
    // In virtual time nobody watches the file while a batch of fixes plays, so a batch
    // is one commit (triggers still go to disk before they are printed). Played at a
    // pace, every update commits on its own, as in a host.
    std::optional<WriteGroup> batch;
    for (std::size_t i = 0; i < track.fixes.size(); ++i) {
        const auto& fix = track.fixes[i];
        if (o.speed <= 0 && i % kFixesPerCommit == 0) {
            batch.reset();
            batch.emplace();
        }
        if (o.speed > 0) {
            std::this_thread::sleep_until(wallStart + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                          std::chrono::duration<double>((fix.timestamp - trackStart) / o.speed)));
        }
        host.deliver(locationOf(fix));
        if (o.maxLogRows) requests.update();
        progress.update(i + 1);
    }

    batch.reset();

    // Let track time run on while reports still wait to go out.
    auto& queue = RequestQueue::sharedInstance();
    const double limit = track.fixes.back().timestamp + o.drain;
    for (int round = 0; round < 100'000; ++round) {
        if (queue.requests().empty() && queue.retryRequests().empty()) break;
        auto next = host.nextTimer();
        if (!next || *next > limit) break;
        host.advanceTo(*next);
        if (o.maxLogRows) requests.update();
    }

    BVGeoTracker::sharedInstance().stop();
    host.settle();

    summary.fixesAccepted =
        static_cast<std::size_t>(countRows("SELECT coalesce(max(id), 0) FROM locations") - locationsBefore);
    requests.update();
    summary.requestsSent = requests.sent();
    summary.requestsRetried = requests.retried();
    summary.requestsQueued = queue.requests().size() + queue.retryRequests().size();
    if (o.durableDelivery) summary.outboxReports = Outbox::sharedInstance().count();
    if (o.stays) {
        summary.stays = stays.stays();
        summary.trackEnd = static_cast<std::int64_t>(track.fixes.back().timestamp);
    }
    summary.database = std::filesystem::absolute(BV1Database().path()).lexically_normal().string();
    if (deadSpots) {
        summary.zones = ReplaySummary::Zones{
            static_cast<std::size_t>(FenceManager::sharedInstance().unansweredRequests()),
            static_cast<std::size_t>(ZonePrefetcher::sharedInstance().requestsStarted()),
            o.zoneCache ? ZoneCache::sharedInstance().size() : 0};
    }
    if (!o.offline.empty()) {
        ReplaySummary::Offline offline{deadSpots->ranges().size(), 0};
        for (const auto& range : deadSpots->ranges())
            offline.positions += static_cast<std::size_t>(
                countRows("SELECT count(*) FROM locations WHERE id > ? AND timestamp >= ? AND timestamp <= ?",
                          {locationsBefore, static_cast<std::int64_t>(std::ceil(range.from)),
                           static_cast<std::int64_t>(std::floor(range.to))}));
        summary.offline = offline;
    }
    // The host is done: let go of the library's state, which closes the database and
    // the HTTP connections it keeps open (a server waits for those before it stops).
    resetAllSharedInstances();

    printSummary(out, summary, o.json);
    if (summaryOut) *summaryOut = summary;
    return 0;
}

} // namespace bvgeo::cli
