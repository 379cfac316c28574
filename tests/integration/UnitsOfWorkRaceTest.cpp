// Units of work that belong to one thread: trigger jobs on the engine's real thread,
// while two other threads flood the database with log rows and with statements that
// fail, in write groups and outside them. Each job is announced at once (nothing of
// the others fails it), every trigger announced is in the file, and every row whose
// write returned true is in the file after the next commit (nothing of a job's undoes
// it). BVGEO_RACE_ROUNDS sets the number of jobs (default 300).
#include "support/LibraryTest.hpp"
#include "support/SqliteFile.hpp"

#include "datastore/BV1Database.hpp"
#include "datastore/DatabaseConnection.hpp"
#include "logger/Logger.hpp"
#include "models/Fence.hpp"
#include "settings/TrackerSettings.hpp"
#include "trigger/TriggerManager.hpp"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <mutex>
#include <set>
#include <thread>

namespace bvgeo::testing {
namespace {

class UnitsOfWorkRaceTest : public LibraryTest {
protected:
    TestPlatformOptions options() const override { return {.threadedQueues = true}; }
};

int rounds() {
    const char* set = std::getenv("BVGEO_RACE_ROUNDS");
    return set && std::atoi(set) > 0 ? std::atoi(set) : 300;
}

TEST_F(UnitsOfWorkRaceTest, JobsAndFloodsOnOtherThreadsNeitherFailNorUndoEachOther) {
    auto fence = std::make_shared<Fence>("f1", "Hall", 51.34, 0.73, 100.0, std::vector<std::string>{}, true);
    ASSERT_TRUE(Fence::saveFenceList({fence}, false));
    auto& settings = TrackerSettings::sharedInstance();
    settings.setTriggerMode(TriggerMode::LOCAL_ONLY);
    std::atomic<int> announced{0};
    settings.setDelegate([&](std::shared_ptr<BVTrigger>) { ++announced; });
    ASSERT_TRUE(Logger::saveLogToDatabase("row 1", LogCategory::CLIENT, 0)); // the key the failing inserts reuse

    std::atomic<bool> stop{false};
    std::mutex keptMutex;
    std::set<std::string> kept; // rows whose write returned true
    std::thread logs([&] {
        for (int n = 0; !stop; ++n) {
            std::optional<WriteGroup> group;
            if (n % 3 == 0) group.emplace();
            const std::string message = "flood " + std::to_string(n);
            if (Logger::saveLogToDatabase(message, LogCategory::CLIENT, n)) {
                std::lock_guard lock(keptMutex);
                kept.insert(message);
            }
        }
    });
    std::atomic<int> failed{0};
    std::thread failures([&] {
        for (int n = 0; !stop; ++n) {
            std::optional<WriteGroup> group;
            if (n % 2 == 0) group.emplace();
            failed += !BV1Database::executeUpdate("INSERT INTO log (id, message) VALUES (1, ?)", {std::string("dup")});
            failed += !BV1Database::executeUpdate("INSERT INTO no_such_table VALUES (?)", {std::int64_t{n}});
        }
    });

    const int total = rounds();
    for (int round = 0; round < total && !HasFailure(); ++round) {
        std::promise<void> decided;
        TriggerManager::processInsideFences(round % 2 == 0 ? FenceList{fence} : FenceList{},
                                            TriggerLocationEventType::Regular,
                                            [&](const ActiveFenceList&) { decided.set_value(); });
        ASSERT_EQ(decided.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
        sim().mainQueue->runPending(); // the delegate calls
        ASSERT_EQ(announced.load(), round + 1) << "every job announces its trigger at once";
    }
    stop = true;
    logs.join();
    failures.join();
    EXPECT_GT(failed.load(), 0);
    BV1Database::closeAll(); // the last commit

    const auto path = BV1Database().path();
    EXPECT_EQ(sqliteScalar(path, "SELECT count(*) FROM trigger"), std::to_string(total));
    const auto rows = sqliteRows(path, "SELECT message FROM log WHERE message LIKE 'flood %'");
    const std::set<std::string> onDisk(rows.begin(), rows.end());
    std::size_t missing = 0;
    for (const auto& message : kept) missing += onDisk.count(message) == 0;
    EXPECT_EQ(missing, 0u) << "of " << kept.size() << " rows whose write returned true";
}

} // namespace
} // namespace bvgeo::testing
