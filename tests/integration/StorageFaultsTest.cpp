// Storage under the whole road: triggers are on disk before the host hears of them,
// a full disk during a location update loses nothing that was announced and heals,
// and the fence listing can be capped.
#include "support/FaultyVfs.hpp"
#include "support/SqliteFile.hpp"
#include "support/WholeRoad.hpp"

#include "datastore/BV1Database.hpp"
#include "datastore/DatabaseConnection.hpp"
#include "models/FenceFetch.hpp"
#include "models/Trigger.hpp"

#include <sqlite3.h>

#include <algorithm>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Triggers another connection sees: committed ones only; -1 when it cannot read.
int committedTriggers() {
    const auto count = sqliteScalar(BV1Database().path(), "SELECT count(*) FROM trigger");
    return count.empty() ? -1 : std::stoi(count);
}

std::vector<std::string> warnings(const std::vector<std::string>& lines) {
    std::vector<std::string> out;
    for (const auto& line : lines)
        if (line.rfind("BV1Database: ", 0) == 0 || line.rfind("TriggerManager: ", 0) == 0) out.push_back(line);
    return out;
}

using StorageFaultsTest = WholeRoadTest;

TEST_F(StorageFaultsTest, TriggersAreCommittedBeforeTheHostOrTheServerHearsOfThem) {
    setZoneAnswer({200, kHallAndParkZone, ""});
    startHost();
    {
        // Another thread's update is still writing when the trigger job runs and the
        // main queue calls the delegate: its open group must not hold the triggers back.
        WriteGroup otherUpdate;
        deliver(kLat, kLon, kT0);
        ASSERT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park"));
        EXPECT_EQ(committedTriggers(), 2);
    }
    EXPECT_EQ(committedTriggers(), 2);
}

TEST_F(StorageFaultsTest, FullDiskDuringALocationUpdateAnnouncesNothingAndHeals) {
    FaultyVfs disk;
    setZoneAnswer({200, kHallAndParkZone, ""});
    startHost();
    deliver(kFarLat, kFarLon, kT0); // the zone is downloaded and stored; outside both fences
    sim().console->clear();

    disk.failWritesAfter(0, SQLITE_FULL);
    deliver(kLat, kLon, kT0 + 10);
    deliver(kLat + kStep, kLon, kT0 + 20);
    advance(1.0);
    EXPECT_GT(disk.failedWrites(), 0);
    EXPECT_TRUE(delegate->received.empty()) << "nothing is announced that is not stored";
    EXPECT_TRUE(requestsTo("/api/").empty());
    EXPECT_TRUE(Trigger::list().empty());
    // One line per kind of failure, however many rows and updates failed.
    const auto path = BV1Database().path();
    EXPECT_THAT(warnings(sim().console->logLines()),
                ElementsAre(HasSubstr("BV1Database: "), HasSubstr("TriggerManager: 2 trigger(s) could not be stored")));
    EXPECT_THAT(warnings(sim().console->logLines())[0], HasSubstr(path + ": database or disk is full"));

    disk.heal();
    deliver(kLat + 2 * kStep, kLon, kT0 + 30);
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park"));
    EXPECT_EQ(committedTriggers(), 2);
    advance(1.0);
    EXPECT_EQ(requestsTo("/api/").size(), 2u);
    const auto locations = storedLines(LogCategory::LOCATION);
    EXPECT_TRUE(std::any_of(locations.begin(), locations.end(),
                            [](const std::string& line) { return line.find("[51.34002, 0.73]") != std::string::npos; }))
        << "writes land again";
}

TEST_F(StorageFaultsTest, FailingTheNthWriteOfAnUpdateNeverAnnouncesWhatIsNotStored) {
    // An update inside both fences makes some 23 file writes: every one of them fails once.
    FaultyVfs disk;
    for (int n = 0; n < 28; ++n) {
        SCOPED_TRACE("failing write " + std::to_string(n + 1));
        startOver(kHallAndParkZone);
        startHost();
        const double t = kT0 + n * 1000;
        deliver(kFarLat, kFarLon, t);

        disk.failWritesAfter(n, n % 2 ? SQLITE_FULL : SQLITE_IOERR_WRITE);
        deliver(kLat, kLon, t + 10);
        const auto announced = delegate->received.size();
        EXPECT_TRUE(announced == 0 || announced == 2) << "a job is announced whole or not at all";
        EXPECT_GE(committedTriggers(), static_cast<int>(announced));

        disk.heal();
        deliver(kLat + kStep, kLon, t + 20);
        EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park")) << "each once, after all";
        EXPECT_EQ(committedTriggers(), 2);
    }
}

TEST_F(StorageFaultsTest, FenceListingNamesAtMostTheLimitThenCountsTheRest) {
    setZoneAnswer({200, kHallAndParkZone, ""});
    extended.fenceListingLimit = 1;
    startHost();
    deliver(kLat, kLon, kT0);
    const std::string listing = "logRetrievedFences(_:fenceList:) [Line 128]: Fences from ";
    EXPECT_TRUE(
        hasLine(storedLines(LogCategory::FENCE), listing + "Zone file (new) - not cached: Hall - (f1),(+1 more)"));
    EXPECT_THAT(delegate->summary(), ElementsAre("enter f1 Hall", "enter f2 Park")) << "only the text is shorter";

    // At the limit the line is as it always was.
    extended.fenceListingLimit = 2;
    restartHost();
    deliver(kLat + kStep, kLon, kT0 + 10);
    EXPECT_TRUE(hasLine(storedLines(LogCategory::FENCE), listing + "Cache: Hall - (f1),Park - (f2)"));
}

} // namespace
} // namespace bvgeo::testing
