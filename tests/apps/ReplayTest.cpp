// Replays through the program's own pieces: a track file, the reference server on
// loopback, the library in virtual time.
#include "ReferenceHttpServer.hpp"
#include "Replay.hpp"

#include "support/FaultyServer.hpp"
#include "support/SqliteFile.hpp"
#include "support/TempDir.hpp"

#include "track/TrackReader.hpp"

#include "zone/ZoneBuilder.hpp"
#include "zone/ZoneGrid.hpp"

#include "platform/SharedInstance.hpp"

#include <GeographicLib/Geodesic.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;
using testing::sqliteScalar;

constexpr double kFenceLat = 51.35, kFenceLon = 0.72, kFenceRadius = 200.0;
constexpr double kStart = 1'400'000'000.0; // 2014-05-13 16:53:20Z

struct Point {
    double latitude, longitude;
};

Point offset(double bearing, double metres) {
    Point p{};
    GeographicLib::Geodesic::WGS84().Direct(kFenceLat, kFenceLon, bearing, metres, p.latitude, p.longitude);
    return p;
}

class ReplayTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(root_ / "server" / "demo" / "zones");
        std::ofstream(root_ / "server" / "demo" / "zones" / getZoneName(kFenceLat, kFenceLon, 0.2))
            << zoneFileText({Fence{"home", "Home", kFenceLat, kFenceLon, kFenceRadius, {}}});
        ReferenceServerOptions options;
        options.rootDirectory = (root_ / "server").string();
        options.triggerDatabasePath = (root_ / "server" / "triggers.sqlite").string();
        server_ = std::make_unique<ReferenceHttpServer>(options);
        ASSERT_TRUE(server_->start(0)) << server_->error();
    }
    void TearDown() override {
        resetAllSharedInstances();
        server_.reset();
    }

    // A CSV track: `rows` of (seconds after kStart, point).
    std::string writeTrack(const std::vector<std::pair<double, Point>>& rows) {
        const auto path = (root_ / "track.csv").string();
        std::ofstream file(path);
        file.precision(10);
        file << "time,lat,lon\n";
        for (const auto& [t, p] : rows) file << kStart + t << ',' << p.latitude << ',' << p.longitude << '\n';
        return path;
    }

    ReplayOptions options(const std::string& track) {
        ReplayOptions o;
        o.track = track;
        o.apiBase = server_->apiBaseUrl();
        o.assetsBase = server_->assetsBaseUrl();
        o.dataDir = (root_ / "device").string();
        o.json = true;
        return o;
    }

    static std::vector<nlohmann::json> lines(const std::string& text) {
        std::vector<nlohmann::json> out;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) out.push_back(nlohmann::json::parse(line));
        return out;
    }

    const testing::TempDir root_{"bvgeo-replay"};
    std::unique_ptr<ReferenceHttpServer> server_;
};

// Three hours, a fix a minute: ten minutes 1 km away, two and a half hours at home
// (2 m of jitter, so no fix is a duplicate), then twenty minutes 1 km away again.
constexpr double kArrived = 600, kLeft = kArrived + 9000;
std::vector<std::pair<double, Point>> homeStay() {
    std::vector<std::pair<double, Point>> rows;
    double t = 0;
    for (; t < kArrived; t += 60) rows.push_back({t, offset(90, 1000)});
    for (int i = 0; t < kLeft; t += 60, ++i) rows.push_back({t, offset(0, (i % 2) * 2.0)});
    for (; t < kLeft + 1200; t += 60) rows.push_back({t, offset(90, 1000)});
    return rows;
}

TEST_F(ReplayTest, ThreeHoursInVirtualTimeLingerEveryLingerTimeUntilMaxThenExitAtTheFirstFixOutside) {
    const auto rows = homeStay();
    ReplayOptions o = options(writeTrack(rows));
    o.distanceFilter = -1.0; // every fix reaches the pipeline
    o.lingerTime = 300;
    o.maxLingerTime = 3600;
    std::ostringstream out;
    ReplaySummary summary;
    ASSERT_EQ(runReplay(o, out, &summary), 0);

    auto all = lines(out.str());
    ASSERT_FALSE(all.empty());
    const auto summaryLine = all.back();
    all.pop_back();
    EXPECT_TRUE(summaryLine["summary"].get<bool>());
    std::vector<double> lingers;
    std::vector<std::string> events;
    for (const auto& trigger : all) {
        EXPECT_EQ(trigger["fenceId"], "home");
        EXPECT_EQ(trigger["fenceName"], "Home");
        EXPECT_EQ(trigger["deviceId"].get<std::string>().size(), 36u);
        events.push_back(trigger["event"]);
        if (trigger["event"] == "linger") lingers.push_back(trigger["timestamp"].get<double>() - kStart);
    }
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events.front(), "enter");
    EXPECT_EQ(all.front()["timestamp"].get<double>(), kStart + kArrived);
    EXPECT_EQ(events.back(), "exit");
    // The exit comes with the first fix outside, even though the standard tracker
    // stopped after maxLingerTime: the 1 km jump is a significant change.
    EXPECT_EQ(all.back()["timestamp"].get<double>(), kStart + kLeft);
    ASSERT_FALSE(lingers.empty());
    EXPECT_EQ(lingers.front(), kArrived + 300);
    for (std::size_t i = 1; i < lingers.size(); ++i) EXPECT_EQ(lingers[i] - lingers[i - 1], 300);
    EXPECT_LT(lingers.back(), kArrived + 3600) << "no linger once the stay reaches maxLingerTime";
    EXPECT_EQ(lingers.size(), 11u);

    EXPECT_EQ(summary.enter, 1u);
    EXPECT_EQ(summary.exit, 1u);
    EXPECT_EQ(summary.linger, lingers.size());
    EXPECT_EQ(summary.fixesRead, rows.size());
    EXPECT_EQ(summary.requestsSent, events.size()) << "every trigger was posted to the server";
    EXPECT_EQ(summary.requestsQueued, 0u);
    EXPECT_EQ(summaryLine["requests"]["sent"], events.size());
}

TEST_F(ReplayTest, TheKentRunAgainstADownTriggerApiSendsEachReportOncePerRetryInterval) {
    const std::string examples = BVGEO_TEST_EXAMPLES_DIR;
    fs::remove_all(root_ / "server" / "demo" / "zones"); // the Kent places instead of the fixture's fence
    ASSERT_TRUE(buildZones(examples + "/kent-places.csv", (root_ / "server" / "demo" / "zones").string(), {}).ok);
    testing::FaultyServer api(testing::FaultyServer::Mode::EmptyServerError);

    ReplayOptions o = options(examples + "/kent-run-2014-05-10.gpx");
    o.apiBase = api.url("/api/v1/app/");
    o.drain = 600;
    std::ostringstream out;
    ReplaySummary summary;
    ASSERT_EQ(runReplay(o, out, &summary), 0);

    const auto track = readTrackFile(o.track, {});
    const double duration = track.fixes.back().timestamp - track.fixes.front().timestamp;
    const auto bound = static_cast<std::size_t>((600 + duration) / 30 + 3);
    std::map<std::string, std::size_t> sends;
    for (const auto& key : api.keys()) ++sends[key];
    const std::size_t triggers = summary.enter + summary.linger + summary.exit;
    EXPECT_EQ(triggers, 46u);
    EXPECT_EQ(sends.size(), triggers) << "one key per report";
    for (const auto& [key, count] : sends) EXPECT_LE(count, bound) << key;
    EXPECT_EQ(summary.requestsQueued, triggers) << "all still owed when the drain ends";
    EXPECT_EQ(summary.requestsSent, 0u);
    EXPECT_GE(summary.requestsRetried, triggers) << "each waited in the retry list";
}

// The library's side of a damaged file is StorageRecoveryTest's; here, the program's:
// the line reaches stderr and the replay goes on into the fresh file.
TEST_F(ReplayTest, DamagedDatabaseIsMovedAsideAndTheReplayGoesOnIntoAFreshOne) {
    ReplayOptions o = options(writeTrack(homeStay()));
    o.distanceFilter = -1.0;
    std::ostringstream first, second;
    ASSERT_EQ(runReplay(o, first, nullptr), 0);
    const fs::path device = root_ / "device";
    {
        std::fstream file(device / "BVGDatabase.sqlite", std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(4096);
        file << std::string(4096, '\x5A');
    }
    ::testing::internal::CaptureStderr();
    const int status = runReplay(o, second, nullptr);
    const std::string stderrText = ::testing::internal::GetCapturedStderr();
    ASSERT_EQ(status, 0);
    const auto aside = testing::filesIn(device, "BVGDatabase.corrupt-", ".sqlite");
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_THAT(stderrText, ::testing::HasSubstr("The database file was damaged ("));
    EXPECT_THAT(stderrText,
                ::testing::HasSubstr("moved to " + (device / aside[0]).string() + "; a new file was started"));
    EXPECT_EQ(lines(second.str()).size(), lines(first.str()).size()) << "the second run triggers as the first did";
}

TEST_F(ReplayTest, RowLimitsKeepTheLogAndHistoryShortAndTheSummaryWhole) {
    ReplayOptions o = options(writeTrack(homeStay()));
    o.distanceFilter = -1.0;
    o.dataDir = (root_ / "unbounded").string();
    std::ostringstream out;
    ReplaySummary unbounded, summary;
    ASSERT_EQ(runReplay(o, out, &unbounded), 0);
    o.dataDir = (root_ / "bounded").string();
    o.maxLogRows = 100;
    o.maxLocationRows = 20;
    ASSERT_EQ(runReplay(o, out, &summary), 0);

    const auto database = root_ / "bounded" / "BVGDatabase.sqlite";
    EXPECT_EQ(sqliteScalar(database, "SELECT count(*) FROM log"), "100");
    EXPECT_EQ(sqliteScalar(database, "SELECT count(*) FROM locations"), "20");
    EXPECT_EQ(sqliteScalar(database, "SELECT max(id) - min(id) + 1 FROM log"), "100") << "the newest rows";
    EXPECT_GT(std::stoi(sqliteScalar(root_ / "unbounded" / "BVGDatabase.sqlite", "SELECT count(*) FROM log")), 1000);
    // The summary counts what happened, not what is left.
    EXPECT_EQ(summary.fixesAccepted, unbounded.fixesAccepted);
    EXPECT_EQ(summary.requestsSent, unbounded.requestsSent);
    EXPECT_EQ(summary.requestsSent, summary.enter + summary.linger + summary.exit);
}

TEST(ReplayOptionsTest, BadOptionsAreUsageErrorsThatNameTheOption) {
    EXPECT_NO_THROW(parseReplayOptions({"t.gpx", "--env", "qa", "--mode", "remote", "--linger-time", "60"}));
    const auto good = parseReplayOptions({"t.gpx", "--env=2", "--mode", "local", "--speed", "4"});
    EXPECT_EQ(good.environment, 2);
    EXPECT_EQ(good.mode, 1);
    EXPECT_EQ(good.speed, 4.0);
    EXPECT_EQ(good.maxLogRows, 0u) << "unbounded unless asked";
    const auto limited = parseReplayOptions(
        {"t.gpx", "--max-log-rows", "1000", "--max-location-rows=5", "--fence-listing-limit", "3"});
    EXPECT_EQ(limited.maxLogRows, 1000u);
    EXPECT_EQ(limited.maxLocationRows, 5u);
    EXPECT_EQ(limited.fenceListingLimit, 3u);
    EXPECT_FALSE(good.triggerFilter.robustTriggers);
    TriggerFilterOptions robust;
    robust.robustTriggers = true;
    EXPECT_EQ(parseReplayOptions({"t.gpx", "--robust-triggers"}).triggerFilter, robust);
    const auto tuned = parseReplayOptions({"t.gpx", "--exit-buffer", "40", "--confirm-fixes=2", "--use-2d-fixes"});
    EXPECT_TRUE(tuned.triggerFilter.robustTriggers) << "a tunable turns the rules on";
    EXPECT_EQ(tuned.triggerFilter.exitBufferMetres, 40.0);
    EXPECT_EQ(tuned.triggerFilter.confirmFixes, 2);
    EXPECT_TRUE(tuned.triggerFilter.useTwoDimensionalFixes);
    for (const auto& [words, named] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"t.gpx", "--mode", "sometimes"}, "--mode"},
             {{"t.gpx", "--env", "7"}, "--env"},
             {{"t.gpx", "--linger-time", "ten"}, "--linger-time"},
             {{"t.gpx", "--colour"}, "--colour"},
             {{"t.gpx", "--speed", "0"}, "--speed"},
             {{"t.gpx", "--max-log-rows", "-1"}, "--max-log-rows"},
             {{"t.gpx", "--fence-listing-limit", "three"}, "--fence-listing-limit"},
             {{"t.gpx", "--exit-buffer", "-1"}, "--exit-buffer"},
             {{"t.gpx", "--max-accuracy", "0"}, "--max-accuracy"},
             {{"t.gpx", "--confirm-fixes", "0"}, "--confirm-fixes"},
             {{"t.gpx", "--minimum-dwell", "soon"}, "--minimum-dwell"},
             {{"t.gpx", "--offline", "1399709000,1399708800"}, "ends before it starts"},
             {{"t.gpx", "--offline", "yesterday,today"}, "neither an ISO 8601 time"},
             {{"t.gpx", "--offline", "1399709000"}, "expected FROM,TO"},
             {{"t.gpx", "--preload", "zones"}, "--preload needs --zone-cache"},
             {{"t.gpx", "--prefetch-distance", "-5", "--zone-cache", "1"}, "--prefetch-distance"},
             {{}, "TRACK"}}) {
        try {
            parseReplayOptions(words);
            ADD_FAILURE() << "accepted " << named;
        } catch (const UsageError& error) {
            EXPECT_THAT(error.what(), ::testing::HasSubstr(named));
        }
    }
}

// Robust triggers and --stays.
TEST_F(ReplayTest, StaysShowTheStandardRuleFlappingAtTheRimAndRobustTriggersHoldingIt) {
    // Half an hour a fix every 10 s, wandering 15 m either way of the fence's rim.
    std::vector<std::pair<double, Point>> rows;
    for (double t = 0; t < 1800; t += 10) rows.push_back({t, offset(0, kFenceRadius + 15 * std::sin(t * 0.05))});
    ReplayOptions o = options(writeTrack(rows));
    o.distanceFilter = -1.0;
    o.stays = true;
    o.dataDir = (root_ / "standard").string();
    std::ostringstream standardOut;
    ASSERT_EQ(runReplay(o, standardOut), 0);
    const auto standard = lines(standardOut.str()).back()["stays"];
    EXPECT_GE(standard["count"].get<int>(), 10);
    EXPECT_EQ(standard["shorterThan2Minutes"], standard["count"]) << "every one a flap";
    EXPECT_GE(standard["reentriesWithin2Minutes"].get<int>(), 9);
    const auto& first = standard["list"][0];
    EXPECT_EQ(first["fenceId"], "home");
    EXPECT_EQ(first["seconds"], first["exit"].get<std::int64_t>() - first["enter"].get<std::int64_t>());

    o.triggerFilter.robustTriggers = true;
    o.json = false;
    o.dataDir = (root_ / "robust").string();
    std::ostringstream robustOut;
    ASSERT_EQ(runReplay(o, robustOut), 0);
    const std::string text = robustOut.str();
    EXPECT_THAT(text, ::testing::HasSubstr("triggers: 1 enter, 5 linger, 0 exit\n"));
    EXPECT_THAT(text, ::testing::MatchesRegex(
                          "(.|\n)*\nstay      Home \\(home\\)  2014-05-13 16:5[0-9]:[0-9]{2}Z  still inside  "
                          "2[0-9] min [0-9]{2} s\nstays:    1, 0 shorter than 2 minutes, 0 re-entries within 2 "
                          "minutes of an exit\n"));
}

} // namespace
} // namespace bvgeo::cli
