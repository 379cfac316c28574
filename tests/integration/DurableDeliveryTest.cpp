// Trigger reports that outlive the process: the idempotency key every report
// carries, and the outbox that durable delivery keeps beside the database.
#include "support/FaultyVfs.hpp"
#include "support/SqliteFile.hpp"
#include "support/TempDir.hpp"
#include "support/WholeRoad.hpp"

#include "datastore/BV1Database.hpp"
#include "models/Trigger.hpp"
#include "request/Outbox.hpp"

#include <filesystem>
#include <fstream>
#include <set>

namespace bvgeo::testing {
namespace {

using ::testing::HasSubstr;

class DurableDeliveryTest : public WholeRoadTest {
protected:
    void SetUp() override {
        WholeRoadTest::SetUp();
        setZoneAnswer({200, kHallAndParkZone, ""});
    }

    std::vector<std::string> postedKeys() const {
        std::vector<std::string> keys;
        for (const auto& post : requestsTo("/api/")) keys.push_back(post.header("Idempotency-Key").value_or(""));
        return keys;
    }

    std::vector<std::string> lines(const std::string& containing) const {
        std::vector<std::string> out;
        for (const auto& line : storedLines(LogCategory::REQUESTS))
            if (line.find(containing) != std::string::npos) out.push_back(line);
        return out;
    }
};

TEST_F(DurableDeliveryTest, ReportsOwedAtExitAreSentAgainWithTheirOwnKeysAfterARelaunch) {
    extended.durableDelivery = true;
    setApiBody(""); // the trigger API is down
    startHost();
    deliver(kLat, kLon, kT0);
    advance(1.0);
    advance(30.0);
    const auto failed = postedKeys();
    ASSERT_EQ(failed.size(), 4u) << "two reports, each sent and retried once";
    const std::set<std::string> keys(failed.begin(), failed.end());
    ASSERT_EQ(keys.size(), 2u) << "a retry carries the key of its report";
    for (const auto& key : keys) EXPECT_EQ(key.size(), 36u) << key;
    EXPECT_EQ(Outbox::sharedInstance().count(), 2u);

    // The process ends with both reports owed; the next one starts with the API back.
    setApiBody("{}");
    restartHost();
    advance(1.0);
    const auto all = postedKeys();
    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(std::set<std::string>(all.begin() + 4, all.end()), keys);
    EXPECT_EQ(Outbox::sharedInstance().count(), 0u) << "accepted reports leave the outbox";
    advance(120.0);
    EXPECT_EQ(postedKeys().size(), 6u);

    // The outbox is a file of its own; the database keeps its five tables.
    EXPECT_TRUE(std::filesystem::exists(Outbox::path()));
    EXPECT_EQ(sqliteRows(BV1Database().path(), "SELECT name FROM sqlite_master WHERE type = 'table' AND "
                                               "name NOT LIKE 'sqlite_%' ORDER BY name"),
              (std::vector<std::string>{"activeFences", "fence", "locations", "log", "trigger"}));
}

TEST_F(DurableDeliveryTest, WithoutDurableDeliveryNothingIsSentAgainAfterARelaunch) {
    setApiBody("");
    startHost();
    deliver(kLat, kLon, kT0);
    advance(1.0);
    ASSERT_EQ(postedKeys().size(), 2u);
    setApiBody("{}");
    restartHost();
    advance(600.0);
    EXPECT_EQ(postedKeys().size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(Outbox::path())) << "no outbox unless asked for";
}

TEST_F(DurableDeliveryTest, TheOutboxKeepsItsBoundsAndLogsWhatFallsOut) {
    extended.durableDelivery = true;
    extended.outboxMaxReports = 3;
    extended.outboxMaxAgeSeconds = 3600;
    setApiBody("");
    startHost(TriggerModes::Both);
    deliver(kLat, kLon, kT0);                // enter f1, enter f2
    deliver(kFarLat, kFarLon, kT0 + 100);    // exit f1, exit f2
    EXPECT_EQ(Outbox::sharedInstance().count(), 3u);
    EXPECT_THAT(lines("Report dropped from outbox"),
                ::testing::ElementsAre("Outbox [Line 90]: Report dropped from outbox (more than 3 reports): enter "
                                       "fenceId: f1"));

    // An hour and more later, a relaunch finds the rest too old to send.
    const auto sent = postedKeys().size();
    sim().clock->set(kT0 + 100 + 3601);
    setApiBody("{}");
    restartHost();
    advance(60.0);
    EXPECT_EQ(Outbox::sharedInstance().count(), 0u);
    const auto expired = lines("older than 3600 seconds");
    EXPECT_EQ(expired.size(), 3u);
    EXPECT_THAT(expired.front(), HasSubstr("enter fenceId: f2"));
    EXPECT_EQ(postedKeys().size(), sent) << "expired reports are not sent";
}

TEST_F(DurableDeliveryTest, ADamagedOrNewerOutboxIsMovedAsideAndTrackingGoesOn) {
    extended.durableDelivery = true;
    const auto dir = std::filesystem::path(sim().documentsDirectory());
    std::filesystem::create_directories(dir);
    std::ofstream(Outbox::path(), std::ios::binary) << std::string(8192, '\x5a');
    startHost();
    deliver(kLat, kLon, kT0);
    EXPECT_EQ(delegate->received.size(), 2u);
    EXPECT_EQ(Outbox::sharedInstance().count(), 2u) << "a fresh outbox took the reports";
    bool told = false;
    for (const auto& line : sim().console->printedLines())
        told = told || (line.find("moved to") != std::string::npos && line.find("BVGOutbox.corrupt-") != std::string::npos);
    EXPECT_TRUE(told);

    // A file from a newer version is kept aside too rather than misread.
    advance(1.0);
    Outbox::sharedInstance().close();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(Outbox::path().c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "PRAGMA user_version = 9", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    EXPECT_EQ(Outbox::sharedInstance().count(), 0u);
    EXPECT_EQ(filesIn(dir, "BVGOutbox.newer-", ".sqlite").size(), 1u);
    EXPECT_EQ(filesIn(dir, "BVGOutbox.corrupt-", ".sqlite").size(), 1u);
}

TEST_F(DurableDeliveryTest, AnOutboxThatCannotBeWrittenOrSyncedHoldsItsTriggersBackUntilItCan) {
    // A report the outbox cannot keep could be lost with the process, so its trigger
    // is neither stored nor announced; once the outbox works the next position
    // announces it, and each report reaches the server once.
    extended.durableDelivery = true;
    FaultyVfs disk;
    disk.onlyFilesNamed("BVGOutbox");
    const std::vector<std::pair<std::string, std::function<void()>>> faults = {
        {"disk full", [&] { disk.failWritesAfter(0, SQLITE_FULL); }},
        {"fsync failing", [&] { disk.failSyncs(); }},
    };
    double t = kT0;
    for (const auto& [name, fail] : faults) {
        SCOPED_TRACE(name);
        startOver(kHallAndParkZone);
        startHost();
        const auto postedBefore = postedKeys().size();
        deliver(kFarLat, kFarLon, t += 100);
        ASSERT_EQ(Outbox::sharedInstance().count(), 0u); // opened sound
        sim().console->clear();

        const int failedBefore = disk.failedWrites();
        fail();
        deliver(kLat, kLon, t += 10);
        advance(1.0);
        EXPECT_GT(disk.failedWrites(), failedBefore);
        EXPECT_TRUE(delegate->received.empty());
        EXPECT_TRUE(Trigger::list().empty());
        EXPECT_EQ(postedKeys().size(), postedBefore);
        bool told = false;
        for (const auto& line : sim().console->logLines())
            told = told || line.find("TriggerManager: 2 trigger(s) could not be stored") != std::string::npos;
        EXPECT_TRUE(told);

        disk.heal();
        deliver(kLat + kStep, kLon, t += 10);
        EXPECT_THAT(delegate->summary(), ::testing::ElementsAre("enter f1 Hall", "enter f2 Park"));
        advance(1.0);
        const auto keys = postedKeys();
        const std::set<std::string> sent(keys.begin() + static_cast<std::ptrdiff_t>(postedBefore), keys.end());
        EXPECT_EQ(keys.size() - postedBefore, 2u);
        EXPECT_EQ(sent.size(), 2u);
        EXPECT_EQ(Outbox::sharedInstance().count(), 0u);
    }
}

TEST_F(DurableDeliveryTest, ResetArchivesTheDatabaseButReportsStillOwedAreDelivered) {
    extended.durableDelivery = true;
    setApiBody("");
    startHost();
    deliver(kLat, kLon, kT0);
    advance(1.0);
    bool archived = false;
    BVGeoTracker::sharedInstance().reset("before", [&] { archived = true; }, nullptr);
    ASSERT_TRUE(archived);
    EXPECT_EQ(Outbox::sharedInstance().count(), 2u);

    setApiBody("{}");
    advance(30.0);
    EXPECT_EQ(Outbox::sharedInstance().count(), 0u);
    const auto keys = postedKeys();
    EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()).size(), 2u);
}

} // namespace
} // namespace bvgeo::testing
