// The whole road for one accepted position, with the zone's fence list in memory
// and every log line going to the database: pipeline, fence list, containment,
// trigger engine (LOCAL_ONLY without a delegate, so nothing leaves the process).
// Positions follow a walk of 10 m steps through the zone, as a moving device's do.
// Arguments: fences in the zone, and the "Fences from ..." listing limit (0: none).
#include "fence/FenceManager.hpp"
#include "location/LocationTrackerSignificantChanges.hpp"
#include "TemporaryDirectory.hpp"

#include "datastore/BV1Database.hpp"
#include "datastore/DatabaseConnection.hpp"
#include "models/Fence.hpp"
#include "models/FenceFetch.hpp"
#include "platform/SharedInstance.hpp"
#include "zone/ZoneGrid.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/testing/TestPlatform.hpp>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using namespace bvgeo;

constexpr double kZoneLat = 51.2, kZoneLon = 0.6, kZoneSize = 0.2; // the cell [51.2, 51.4) x [0.6, 0.8)
constexpr std::int64_t kNeverExpires = 1'000'000'000;                // seconds of zone cache

void seedZone(int fenceCount) {
    std::mt19937 random(42);
    // Shop-sized fences: at 100,000 in the zone about 15 surround any point.
    std::uniform_real_distribution<double> offset(0.0, kZoneSize), radius(20.0, 200.0);
    FenceList fences;
    fences.reserve(fenceCount);
    for (int i = 0; i < fenceCount; ++i) {
        const std::string number = std::to_string(i);
        std::string id = "f", name = "Fence ";
        id += number;
        name += number;
        fences.push_back(std::make_shared<Fence>(id, name, kZoneLat + offset(random), kZoneLon + offset(random),
                                                 radius(random), std::vector<std::string>{}, true));
    }
    Fence::saveFenceList(fences, false);
}

// The library started on a zone of `fences` fences, one tracker, and a device walking
// through the zone; step() delivers one accepted position and runs it to the end.
class Road {
public:
    Road(int fenceCount, std::size_t listingLimit) {
        sim_.installFresh();
        auto& tracker = BVGeoTracker::sharedInstance();
        // Nothing here should leave the machine: should the list ever be downloaded,
        // the request goes to a closed loopback port.
        tracker.setEnvironmentURLs(BVEnvironment::PRODUCTION,
                                   {"http://127.0.0.1:9/api/v1/app/", "http://127.0.0.1:9/"});
        tracker.configure("bench", TriggerModes::LocalOnly, BVEnvironments::Production);
        // The clock moves a second per position: a cache that never expires in the run
        // keeps every position on the road measured (the list from memory), however
        // many iterations the benchmark takes.
        tracker.setParameters(kLocationAccuracyNearestTenMeters, kDistanceFilterNone, kNeverExpires);
        ExtendedOptions extended;
        extended.fenceListingLimit = listingLimit;
        tracker.setExtendedOptions(extended);
        seedZone(fenceCount);
        FenceFetch::setLastZoneFile(getZoneName(kZoneLat + 0.1, kZoneLon + 0.1, kZoneSize));
        FenceFetch::setLastCacheTime(sim_.clock->now());
        tracker.start();
        // One tracker, so that every push is exactly one accepted position.
        LocationTrackerSignificantChanges::sharedInstance().stop();
        time_ = sim_.clock->currentTime();
        // The first position reads the table; every later one is answered from memory.
        sim_.deliver(latitude_, longitude_, time_ += 1);
    }
    ~Road() {
        BVGeoTracker::sharedInstance().stop();
        sim_.runUntilIdle();
        resetAllSharedInstances();
    }

    void step() {
        sim_.clock->set(time_ += 1);
        walk();
        sim_.locationService->push(latitude_, longitude_, time_);
        sim_.runUntilIdle();
    }

    static std::int64_t newestLogId() {
        std::int64_t id = 0;
        BV1Database().getDatabase().executeQuery("SELECT coalesce(max(id), 0) FROM log", {},
                                                 [&](const DatabaseRow& row) { id = row.int64ForColumnIndex(0); });
        return id;
    }

private:
    void walk() {
        const double step = 10.0 / 111'000.0; // degrees of latitude in 10 m
        heading_ += turn_(random_);
        latitude_ += step * std::cos(heading_);
        longitude_ += step * std::sin(heading_) / std::cos(latitude_ * M_PI / 180.0);
        // Stay inside the zone: turn back at its edges.
        if (latitude_ < kZoneLat + 0.001 || latitude_ > kZoneLat + kZoneSize - 0.001 ||
            longitude_ < kZoneLon + 0.001 || longitude_ > kZoneLon + kZoneSize - 0.001) {
            heading_ += M_PI;
            latitude_ = std::clamp(latitude_, kZoneLat + 0.001, kZoneLat + kZoneSize - 0.001);
            longitude_ = std::clamp(longitude_, kZoneLon + 0.001, kZoneLon + kZoneSize - 0.001);
        }
    }

    testing::TestPlatform sim_;
    std::mt19937 random_{7};
    std::uniform_real_distribution<double> turn_{-0.3, 0.3};
    double heading_ = 0.7, latitude_ = kZoneLat + 0.1, longitude_ = kZoneLon + 0.1, time_ = 0;
};

struct LogRow {
    std::string message, category;
    std::int64_t timestamp = 0;
};

// The log rows written after `afterId`, one list per accepted position (a position's
// rows start at its "Location Updated" line).
std::vector<std::vector<LogRow>> logRowsByPosition(std::int64_t afterId) {
    std::vector<std::vector<LogRow>> positions;
    BV1Database().getDatabase().executeQuery(
        "SELECT message, category, timestamp FROM log WHERE id > ? ORDER BY id", {afterId},
        [&](const DatabaseRow& row) {
            LogRow log{row.stringForColumn("message"), row.stringForColumn("category"), row.int64ForColumn("timestamp")};
            if (positions.empty() || log.message.find("Location Updated") != std::string::npos) positions.emplace_back();
            positions.back().push_back(std::move(log));
        });
    return positions;
}

std::int64_t bytesOf(const std::vector<std::vector<LogRow>>& positions) {
    std::int64_t bytes = 0;
    for (const auto& rows : positions)
        for (const auto& row : rows) bytes += static_cast<std::int64_t>(row.message.size() + row.category.size()) + 8;
    return bytes;
}

void BM_WholeRoadPerPosition(benchmark::State& state) {
    Road road(static_cast<int>(state.range(0)), static_cast<std::size_t>(state.range(1)));
    const auto firstId = Road::newestLogId();
    for (auto _ : state) road.step();
    state.SetItemsProcessed(state.iterations());
    // Message, category and timestamp bytes of the log rows the positions wrote.
    state.counters["log_bytes"] =
        benchmark::Counter(static_cast<double>(bytesOf(logRowsByPosition(firstId))), benchmark::Counter::kIsRate);
}
// Wall time: the writes' waits on the disk are part of what a position costs.
BENCHMARK(BM_WholeRoadPerPosition)
    ->Args({1000, 0})
    ->Args({100000, 0})
    ->Args({100000, 100})
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

// What a plain prepared INSERT reaches with the same log rows: the rows a whole-road
// run writes for 20 positions, inserted into a fresh file of the same schema and
// settings (WAL, synchronous NORMAL), one transaction per position as the library
// commits them. Argument: fences in the zone (full listing).
void BM_PlainInsertOfWholeRoadLogRows(benchmark::State& state) {
    std::vector<std::vector<LogRow>> positions;
    {
        Road road(static_cast<int>(state.range(0)), 0);
        const auto firstId = Road::newestLogId();
        for (int i = 0; i < 20; ++i) road.step();
        positions = logRowsByPosition(firstId);
    }
    bench::TemporaryDirectory directory;
    sqlite3* db = nullptr;
    sqlite3_open((directory.path() + "/plain.sqlite").c_str(), &db);
    sqlite3_exec(db,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=4000;"
                 "CREATE TABLE log (id INTEGER PRIMARY KEY, message TEXT DEFAULT NULL, category TEXT DEFAULT NULL, "
                 "timestamp INTEGER DEFAULT 0)",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO log (message, category, timestamp) VALUES (?, ?, ?)", -1, &insert, nullptr);
    std::size_t next = 0;
    std::int64_t bytes = 0;
    for (auto _ : state) {
        const auto& rows = positions[next++ % positions.size()];
        sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
        for (const auto& row : rows) {
            sqlite3_bind_text(insert, 1, row.message.data(), static_cast<int>(row.message.size()), SQLITE_STATIC);
            sqlite3_bind_text(insert, 2, row.category.data(), static_cast<int>(row.category.size()), SQLITE_STATIC);
            sqlite3_bind_int64(insert, 3, row.timestamp);
            if (sqlite3_step(insert) != SQLITE_DONE) state.SkipWithError("insert failed");
            sqlite3_reset(insert);
            bytes += static_cast<std::int64_t>(row.message.size() + row.category.size()) + 8;
        }
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    }
    sqlite3_finalize(insert);
    sqlite3_close(db);
    state.SetItemsProcessed(state.iterations());
    state.counters["log_bytes"] = benchmark::Counter(static_cast<double>(bytes), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PlainInsertOfWholeRoadLogRows)->Arg(1000)->Arg(100000)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace
