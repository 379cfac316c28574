// The debug console's server side over real HTTP on loopback: what the map and
// log pages are given, who may ask, and what Restart and Send to Email do. The
// pages themselves are driven in a browser by the tests under tests/e2e.
#include "support/LibraryTest.hpp"

#include "debug/DebugMapViewController.hpp"
#include "logger/Logger.hpp"
#include "models/DebugLocation.hpp"
#include "models/Fence.hpp"
#include "models/Log.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/DebugConsole.hpp>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <future>

namespace bvgeo::testing {
namespace {

using nlohmann::json;

// The /api/map test covers an ordinary cell and titles; these are the edges it does not.
TEST(DebugMapView, ZoneSquareCornersAndPinTitles) {
    using Corners = DebugMapViewController::ZoneCorners;
    EXPECT_EQ(DebugMapViewController::zoneCorners(0.05, -0.05, 0.2),
              (Corners{{{0.0, -0.2}, {0.0, 0.0}, {0.2, 0.0}, {0.2, -0.2}}}));

    EXPECT_EQ(DebugMapViewController::fenceTitle(Fence("3", "Dot", 0, 0, 0, {}, true)), "Dot - 0m");
}

class DebugConsoleTest : public LibraryTest {
protected:
    void TearDown() override {
        console_.reset();
        LibraryTest::TearDown();
    }

    DebugConsole& start(DebugConsoleOptions options = {}) {
        console_ = std::make_unique<DebugConsole>(options);
        EXPECT_TRUE(console_->start()) << console_->error();
        return *console_;
    }

    httplib::Client client() const {
        httplib::Client http("127.0.0.1", console_->port());
        http.set_read_timeout(10, 0);
        return http;
    }

    json getJson(const std::string& path) {
        auto answer = client().Get(path.c_str());
        EXPECT_TRUE(answer) << path;
        if (!answer) return nullptr;
        EXPECT_EQ(answer->status, 200) << path << ": " << answer->body;
        return json::parse(answer->body);
    }

    // Actions wait for the main queue, which only this thread pumps: send from
    // another thread and run the main queue until the answer is back.
    httplib::Result postWhilePumping(const std::string& path, const std::string& body, const std::string& token) {
        auto answer = std::async(std::launch::async, [&, port = console_->port()] {
            httplib::Client http("127.0.0.1", port);
            http.set_read_timeout(10, 0);
            return http.Post(path.c_str(), {{"X-BVGeo-Token", token}}, body, "application/json");
        });
        pumpUntilReady(answer, 10); // the client gives up by then too
        return answer.get();
    }

    // Runs the main queue until `answer` is ready or `seconds` pass; whether it is.
    template <class T>
    bool pumpUntilReady(std::future<T>& answer, int seconds) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        while (answer.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready &&
               std::chrono::steady_clock::now() < deadline)
            sim().runUntilIdle();
        return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }

    std::unique_ptr<DebugConsole> console_;
};

TEST_F(DebugConsoleTest, MapShowsOnlyCurrentZoneFencesAroundTheNewestPosition) {
    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.setParameters(kLocationAccuracyHundredMeters, 50.0, 3600, 0.1);
    // As in debug mode: the earlier zone's fence stays in the table, marked not current.
    const bool keepEarlierZones = true;
    Fence::saveFenceList({std::make_shared<Fence>("e", "Earlier", -23.45, -46.55, 50, std::vector<std::string>{}, true)},
                         keepEarlierZones);
    Fence::saveFenceList({std::make_shared<Fence>("s", "Shop", -23.5505, -46.634, 100, std::vector<std::string>{}, true),
                          std::make_shared<Fence>("x", "<img src=x onerror=alert(1)>", -23.551, -46.633, 12.5,
                                                  std::vector<std::string>{}, true)},
                         keepEarlierZones);
    start();

    EXPECT_TRUE(getJson("/api/map")["position"].is_null()) << "no history yet";
    EXPECT_TRUE(getJson("/api/map")["zone"].is_null());

    DebugLocation::saveDebugLocation(-23.45, -46.55, "LocationTracker");
    DebugLocation::saveDebugLocation(-23.5505, -46.6333, "LocationTrackerSignificantChanges");
    const json map = getJson("/api/map");
    EXPECT_EQ(map["position"]["latitude"], -23.5505);
    EXPECT_EQ(map["position"]["type"], "LocationTrackerSignificantChanges");
    EXPECT_EQ(map["zoneInterval"], 0.1);
    EXPECT_EQ(map["zone"]["corners"], json::parse("[[-23.6,-46.7],[-23.6,-46.6],[-23.5,-46.6],[-23.5,-46.7]]"));
    ASSERT_EQ(map["fences"].size(), 2u);
    EXPECT_EQ(map["fences"][0]["title"], "Shop - 100m");
    EXPECT_EQ(map["fences"][1]["title"], "<img src=x onerror=alert(1)> - 12.5m");
    EXPECT_TRUE(map["tileUrlTemplate"].is_null());

    // The page polls the position and redraws when its id changes.
    const auto before = getJson("/api/position")["position"]["id"];
    DebugLocation::saveDebugLocation(-23.56, -46.64, "LocationTracker");
    EXPECT_NE(getJson("/api/position")["position"]["id"], before);
}

TEST_F(DebugConsoleTest, LogPagesAreNewestFirstFilteredAndComplete) {
    const std::vector<std::pair<std::string, LogCategory>> rows = {
        {"a", LogCategory::GENERAL}, {"b", LogCategory::REQUESTS}, {"c", LogCategory::FENCE},
        {"d", LogCategory::REQUESTS}, {"e", LogCategory::ZONE},    {"f", LogCategory::REQUESTS},
        {"g", LogCategory::CLIENT}};
    for (const auto& [message, category] : rows) Log::save(Log{"", message, category, 0});
    start();

    std::string all;
    std::string path = "/api/logs?limit=3";
    for (int page = 0; page < 10; ++page) {
        const json answer = getJson(path);
        for (const auto& row : answer["rows"]) all += row["message"].get<std::string>();
        if (!answer["more"].get<bool>()) break;
        path = "/api/logs?limit=3&before=" + std::to_string(answer["rows"].back()["id"].get<std::int64_t>());
    }
    EXPECT_EQ(all, "gfedcba");

    const json requests = getJson("/api/logs?filter=REQUESTS");
    EXPECT_EQ(requests["filter"], "REQUESTS");
    EXPECT_EQ(requests["rows"].size(), 3u);
    EXPECT_EQ(requests["rows"][0]["message"], "f");
    EXPECT_FALSE(requests["more"].get<bool>());
    EXPECT_EQ(getJson("/api/logs?filter=NONE")["rows"].size(), 7u);

    for (const char* bad : {"/api/logs?filter=requests", "/api/logs?filter=", "/api/logs?before=x", "/api/logs?limit=0"})
        EXPECT_EQ(client().Get(bad)->status, 400) << bad;
}

TEST_F(DebugConsoleTest, RefusesForeignHostsForeignOriginsAndActionsWithoutTheToken) {
    auto& console = start();
    const std::string token = console.token();
    ASSERT_EQ(token.size(), 32u);

    auto page = client().Get("/log");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_NE(page->body.find(token), std::string::npos) << "the page carries this run's token";
    EXPECT_NE(page->get_header_value("Content-Security-Policy").find("default-src 'self'"), std::string::npos);
    EXPECT_EQ(client().Get("/assets/leaflet/leaflet.js")->status, 200);
    EXPECT_EQ(client().Get("/")->get_header_value("Location"), "/map");

    // DNS rebinding: the browser sends the attacker's name as Host.
    EXPECT_EQ(client().Get("/api/logs", {{"Host", "evil.example:" + std::to_string(console.port())}})->status, 403);
    EXPECT_EQ(client().Get("/api/logs", {{"Host", "localhost:" + std::to_string(console.port())}})->status, 200);

    Log::save(Log{"", "keep me", LogCategory::CLIENT, 0});
    EXPECT_EQ(client().Post("/api/restart", R"({"name":"x"})", "application/json")->status, 403);
    EXPECT_EQ(client().Post("/api/restart", {{"X-BVGeo-Token", std::string(32, '0')}}, R"({"name":"x"})",
                            "application/json")->status,
              403);
    EXPECT_EQ(client().Post("/api/restart", {{"X-BVGeo-Token", token}, {"Origin", "http://evil.example"}},
                            R"({"name":"x"})", "application/json")->status,
              403);
    EXPECT_EQ(client().Post("/api/email", "{}", "application/json")->status, 403);
    EXPECT_EQ(client().Get("/api/report.eml")->status, 403);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(sim().documentsDirectory()) / "x.sqlite"));
    EXPECT_EQ(getJson("/api/logs")["rows"][0]["message"], "keep me");

    console.stop();
    ASSERT_TRUE(console.start());
    EXPECT_NE(console.token(), token) << "each run has its own token";
}

TEST_F(DebugConsoleTest, RestartArchivesTheDatabaseAndStartsTrackingAgainOrSaysWhyNot) {
    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.configure("console-test", 0, 3);
    Log::save(Log{"", "before the restart", LogCategory::CLIENT, 0});
    auto& console = start();
    const auto documents = std::filesystem::path(sim().documentsDirectory());

    auto restart = [&](const std::string& name) {
        auto answer = postWhilePumping("/api/restart", json{{"name", name}}.dump(), console.token());
        EXPECT_TRUE(answer);
        return answer ? json::parse(answer->body) : json();
    };
    EXPECT_EQ(restart(""), json::parse(R"({"ok":false,"code":1001,"message":"Name cannot be empty"})"));
    EXPECT_EQ(restart("a/b")["code"], 1002);
    EXPECT_EQ(restart("first"), json::parse(R"({"ok":true})"));
    EXPECT_TRUE(std::filesystem::exists(documents / "first.sqlite"));
    EXPECT_EQ(restart("first"), json::parse(R"({"ok":false,"code":1000,"message":"Name already exists"})"));

    std::string shown;
    const json fresh = getJson("/api/logs?limit=5000");
    for (const auto& row : fresh["rows"]) shown += row["message"].get<std::string>() + " \n";
    EXPECT_NE(shown.find("Started tracking location"), std::string::npos) << shown;
    EXPECT_EQ(shown.find("before the restart"), std::string::npos) << "the page shows the fresh database";
}

TEST_F(DebugConsoleTest, EmailWithoutAMailServerOffersTheReportAsAFile) {
    auto& console = start();
    auto answer = postWhilePumping("/api/email", "{}", console.token());
    ASSERT_TRUE(answer);
    const json reply = json::parse(answer->body);
    EXPECT_FALSE(reply["sent"].get<bool>());
    EXPECT_THAT(sim().console->printedLines(), ::testing::Contains("Can not send email."));

    auto download = std::async(std::launch::async, [&, path = reply["download"].get<std::string>()] {
        return client().Get(path.c_str());
    });
    ASSERT_TRUE(pumpUntilReady(download, 60)) << "the download never ended";
    auto eml = download.get();
    ASSERT_TRUE(eml);
    EXPECT_EQ(eml->status, 200);
    EXPECT_EQ(eml->get_header_value("Content-Type"), "message/rfc822");
    EXPECT_NE(eml->body.find("Subject: BVG SDK Tests - "), std::string::npos);
    EXPECT_NE(eml->body.find("BVGDatabase.sqlite"), std::string::npos);
}

TEST_F(DebugConsoleTest, StoppingWhileAnActionWaitsForTheMainQueueAnswersAtOnce) {
    auto& console = start();
    auto answer = std::async(std::launch::async, [port = console.port(), token = console.token()] {
        httplib::Client http("127.0.0.1", port);
        http.set_read_timeout(10, 0);
        return http.Post("/api/restart", {{"X-BVGeo-Token", token}}, R"({"name":"never"})", "application/json");
    });
    // The main queue is never pumped here: without the stop the worker would wait
    // out the whole action timeout, and stop() would wait for the worker.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (sim().mainQueue->pendingWork() == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    ASSERT_EQ(sim().mainQueue->pendingWork(), 1u) << "the restart is waiting for the main queue";
    // The action would wait 30 s for the main queue; the stop must answer it at once.
    // Whether it did shows in the answer, not in a stopwatch.
    console.stop();
    auto result = answer.get();
    ASSERT_TRUE(result);
    EXPECT_EQ(result->status, 503);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(sim().documentsDirectory()) / "never.sqlite"));
}

} // namespace
} // namespace bvgeo::testing
