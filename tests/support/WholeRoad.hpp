// WholeRoadTest: drives the library as a host does, against a zone/trigger server on
// loopback: DEVELOPMENT pointed at the server, positions from the simulated location
// service under the manual clock, and a delegate that records what reaches it on
// the main queue. settle() runs everything a step started (queues and transfers).
#pragma once

#include "support/LibraryTest.hpp"
#include "support/LoopbackServer.hpp"
#include "support/StoredLogs.hpp"

#include "datastore/BV1Database.hpp"
#include "models/FenceFetch.hpp"
#include "request/HTTPClient.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <nlohmann/json.hpp>

#include <map>

namespace bvgeo::testing {

class RecordingDelegate : public BVGeoTrackerDelegate {
public:
    explicit RecordingDelegate(MainQueue& main) : main_(main) {}
    void BVGeoTrackerOnFenceTriggered(BVGeoTracker&, std::shared_ptr<BVTrigger> trigger) override {
        EXPECT_TRUE(main_.isCurrent()) << "the delegate is called on the main queue";
        received.push_back(trigger);
    }
    // "event fenceId fenceName" per trigger.
    std::vector<std::string> summary() const {
        std::vector<std::string> out;
        for (const auto& t : received) out.push_back(t->getEvent() + " " + t->fenceId + " " + t->fenceName);
        return out;
    }
    std::vector<std::shared_ptr<BVTrigger>> received;

private:
    MainQueue& main_;
};

// What the server answers for zone files.
struct ZoneAnswer {
    int status = 200;
    std::string body;
    std::string lastModified;
};

class WholeRoadTest : public LibraryTest {
protected:
    static constexpr double kT0 = 1'500'000'000;
    // Hall and Park overlap at (kLat, kLon); (kFarLat, kFarLon) is in the same zone, outside both.
    static constexpr const char* kHallAndParkZone = R"({"fences":[
  {"_id":"f1","name":"Hall","location":{"type":"Point","coordinates":[0.73,51.34]},"radius":100},
  {"_id":"f2","name":"Park","location":{"type":"Point","coordinates":[0.7305,51.3405]},"radius":200}]})";
    static constexpr double kLat = 51.34, kLon = 0.73;
    static constexpr double kFarLat = 51.35, kFarLon = 0.74;
    // Each step moves a metre and a bit north, so no fix is dropped as a repeat.
    static constexpr double kStep = 0.00001;

    void SetUp() override {
        LibraryTest::SetUp();
        server = std::make_unique<LoopbackServer>([this](const httplib::Request& request, httplib::Response& response) {
            if (request.path.rfind("/assets/", 0) == 0) {
                ZoneAnswer answer;
                {
                    std::lock_guard lock(zoneMutex_);
                    answer = zoneAnswer_;
                }
                response.status = answer.status;
                if (!answer.lastModified.empty()) response.set_header("Last-Modified", answer.lastModified);
                if (!answer.body.empty()) response.set_content(answer.body, "application/json");
            } else {
                std::lock_guard lock(zoneMutex_);
                response.status = 200;
                response.set_content(apiBody_, "application/json");
            }
        });
        delegate = std::make_shared<RecordingDelegate>(*sim().mainQueue);
    }
    void TearDown() override {
        settle();
        LibraryTest::TearDown();
        server.reset();
    }

    void setZoneAnswer(ZoneAnswer answer) {
        std::lock_guard lock(zoneMutex_);
        zoneAnswer_ = std::move(answer);
    }
    // The trigger API's answer body: "{}" by default; "" makes every report fail.
    void setApiBody(std::string body) {
        std::lock_guard lock(zoneMutex_);
        apiBody_ = std::move(body);
    }

    // Host start-up: base URLs, configure, tuning, delegate, start.
    void startHost(int mode = TriggerModes::Both, std::int64_t lingerTime = 300, std::int64_t maxLingerTime = 7200) {
        auto& t = BVGeoTracker::sharedInstance();
        t.setEnvironmentURLs(BVEnvironment::DEVELOPMENT, {server->url("/api/v1/app/"), server->url("/assets/")});
        t.configure("e2e", mode, BVEnvironments::Development);
        t.setParameters(kLocationAccuracyNearestTenMeters, kDistanceFilterNone, 3600, 0.2, lingerTime, maxLingerTime,
                        30.0);
        t.setExtendedOptions(extended);
        t.setTriggerDelegate(delegate);
        t.start();
    }

    // A fresh install on the same files, with nothing stored or received, serving `zone`.
    void startOver(const std::string& zone) {
        sim().installFresh();
        ASSERT_TRUE(
            BV1Database::executeStatements("DELETE FROM trigger; DELETE FROM activeFences; DELETE FROM fence;"));
        FenceFetch::reset();
        delegate->received.clear();
        setZoneAnswer({200, zone, ""});
    }

    // A new process over the same database file and settings.
    void restartHost(int mode = TriggerModes::Both) {
        settle();
        resetAllSharedInstances();
        installPlatform(sim().bundle());
        startHost(mode);
    }

    // Runs queued work and waits for transfers until nothing is left.
    void settle() {
        for (int round = 0; round < 10'000; ++round) {
            ASSERT_TRUE(HTTPClient::sharedInstance().waitUntilIdle(10.0));
            int ran = sim().mainQueue->runPending() + sim().dispatchQueues->runPending();
            if (ran == 0 && HTTPClient::sharedInstance().inFlight() == 0) return;
        }
        FAIL() << "the library did not settle";
    }

    void deliver(double latitude, double longitude, double time) {
        sim().deliver(latitude, longitude, time);
        settle();
    }
    void advance(double seconds) {
        sim().advance(seconds);
        settle();
    }

    std::vector<SeenRequest> requestsTo(const std::string& prefix) const {
        std::vector<SeenRequest> out;
        for (auto& r : server->requests())
            if (r.path.rfind(prefix, 0) == 0) out.push_back(r);
        return out;
    }

    std::unique_ptr<LoopbackServer> server;
    std::shared_ptr<RecordingDelegate> delegate;
    ExtendedOptions extended; // given to every start

private:
    std::mutex zoneMutex_; // guards both answers
    ZoneAnswer zoneAnswer_;
    std::string apiBody_ = "{}";
};

} // namespace bvgeo::testing
