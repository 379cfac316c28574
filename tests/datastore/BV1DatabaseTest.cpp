#include "support/LibraryTest.hpp"
#include "support/SqliteFile.hpp"
#include "support/StoredLogs.hpp"

#include "datastore/BV1Database.hpp"
#include "datastore/DatabaseConnection.hpp"
#include "models/Log.hpp"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

namespace bvgeo::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::vector<std::string> columns(const std::string& path, const std::string& table) {
    return sqliteRows(path, "SELECT name, type, dflt_value, pk FROM pragma_table_info('" + table + "')");
}

bool exists(const std::string& path) { return std::filesystem::exists(path); }

Log logRow(std::string message) {
    Log row;
    row.message = std::move(message);
    row.timestamp = 1'500'000'000;
    return row;
}

using BV1DatabaseTest = LibraryTest;

TEST_F(BV1DatabaseTest, NewFileCarriesTheVersionOneSchemaInWalMode) {
    BV1Database database;
    const auto path = database.path();
    EXPECT_EQ(path, sim().documentsDirectory() + "/BVGDatabase.sqlite");
    EXPECT_EQ(database.getDatabaseVersion(), 1);

    EXPECT_THAT(columns(path, "log"), ElementsAre("id|INTEGER|NULL|1", "message|TEXT|NULL|0",
                                                  "category|TEXT|NULL|0", "timestamp|INTEGER|0|0"));
    EXPECT_THAT(columns(path, "fence"),
                ElementsAre("id|TEXT|NULL|1", "name|TEXT|NULL|0", "latitude|TEXT|NULL|0", "longitude|TEXT|NULL|0",
                            "radius|REAL|NULL|0", "content_ids|TEXT|NULL|0", "current_zone|INTEGER|0|0"));
    EXPECT_THAT(columns(path, "locations"),
                ElementsAre("id|INTEGER|NULL|1", "latitude|REAL|NULL|0", "longitude|REAL|NULL|0",
                            "timestamp|INTEGER|0|0", "type|TEXT|NULL|0"));
    EXPECT_THAT(columns(path, "trigger"),
                ElementsAre("id|INTEGER|NULL|1", "device_id|TEXT|NULL|0", "fence_id|TEXT|NULL|0",
                            "fence_name|TEXT|NULL|0", "event|TEXT|NULL|0", "timestamp|INTEGER|0|0",
                            "location_event|TEXT|'unknown'|0"));
    EXPECT_THAT(columns(path, "activeFences"), ElementsAre("id|INTEGER|NULL|1", "fence_id|TEXT|NULL|0",
                                                           "activated_at|INTEGER|0|0", "last_trigger_at|INTEGER|0|0"));
    EXPECT_THAT(sqliteRows(path, "SELECT type, name FROM sqlite_master WHERE name NOT LIKE 'sqlite%' ORDER BY name"),
                ElementsAre("index|ActiveFencesUniqueId", "table|activeFences", "table|fence", "table|locations",
                            "table|log", "table|trigger"));
    EXPECT_THAT(sqliteRows(path, "SELECT \"unique\" FROM pragma_index_list('activeFences')"), ElementsAre("1"));
    EXPECT_THAT(sqliteRows(path, "PRAGMA user_version"), ElementsAre("1"));
    EXPECT_THAT(sqliteRows(path, "PRAGMA journal_mode"), ElementsAre("wal"));
}

TEST_F(BV1DatabaseTest, MoveAndRenameArchivesTheFileAndStartsAFreshOne) {
    ASSERT_TRUE(Log::save(logRow("before the move")));
    BV1Database database;
    EXPECT_FALSE(database.checkIfNewFileExists("archive"));

    database.moveAndRenameDatabase("archive");
    const auto archive = sim().documentsDirectory() + "/archive.sqlite";
    EXPECT_THAT(sim().console->printedLines(), ElementsAre("Move successful"));
    EXPECT_TRUE(database.checkIfNewFileExists("archive"));
    EXPECT_FALSE(exists(archive + "-wal"));
    EXPECT_FALSE(exists(archive + "-shm"));
    EXPECT_FALSE(exists(database.path() + "-wal"));
    EXPECT_THAT(sqliteRows(archive, "SELECT message FROM log"), ElementsAre("before the move"));

    // The next access starts a new file with the schema and none of the old rows.
    EXPECT_TRUE(storedMessages().empty());
    ASSERT_TRUE(Log::save(logRow("after the move")));

    // An archive of that name exists already: both files stay as they are.
    sim().console->clear();
    BV1Database().moveAndRenameDatabase("archive");
    ASSERT_EQ(sim().console->printedLines().size(), 1u);
    EXPECT_THAT(sim().console->printedLines()[0], StartsWith("Moved failed with error: "));
    EXPECT_GT(sim().console->printedLines()[0].size(), std::string("Moved failed with error: ").size());
    EXPECT_THAT(storedMessages(), ElementsAre("after the move"));
    EXPECT_THAT(sqliteRows(archive, "SELECT message FROM log"), ElementsAre("before the move"));

    // Nothing at the source: nothing to move.
    sim().console->clear();
    BV1Database other("Other.sqlite");
    BV1Database::closeAll();
    std::filesystem::remove(other.path());
    other.moveAndRenameDatabase("other-archive");
    EXPECT_THAT(sim().console->printedLines(), ElementsAre("File not found"));
    EXPECT_FALSE(other.checkIfNewFileExists("other-archive"));
}

TEST_F(BV1DatabaseTest, UnusableLocationFailsQuietlyWithOneConsoleLine) {
    // A plain file where the documents directory should be: it cannot be created.
    const auto documents = sim().documentsDirectory();
    std::filesystem::remove_all(documents);
    std::ofstream(documents) << "not a directory";

    EXPECT_FALSE(BV1Database::executeStatements("DELETE FROM log;"));
    EXPECT_FALSE(Log::save(logRow("lost")));
    EXPECT_TRUE(Log::getLogsFromDatabase().empty());
    EXPECT_EQ(BV1Database().getDatabaseVersion(), -1);
    ASSERT_EQ(sim().console->logLines().size(), 1u);
    EXPECT_THAT(sim().console->logLines()[0], HasSubstr(documents + "/BVGDatabase.sqlite"));
}

TEST_F(BV1DatabaseTest, FailedStatementsReportOncePerStreak) {
    const std::string bad = "INSERT INTO no_such_table (x) VALUES (?)";
    EXPECT_FALSE(BV1Database::executeUpdate(bad, {std::int64_t{1}}));
    EXPECT_FALSE(BV1Database::executeUpdate(bad, {std::int64_t{2}}));
    EXPECT_EQ(sim().console->logLines().size(), 1u);
    EXPECT_THAT(sim().console->logLines()[0], HasSubstr("no_such_table"));

    EXPECT_TRUE(Log::save(logRow("fine")));
    EXPECT_FALSE(BV1Database::executeUpdate(bad, {std::int64_t{3}}));
    EXPECT_EQ(sim().console->logLines().size(), 2u);
}

TEST_F(BV1DatabaseTest, WriteGroupsCommitWhenTheLastClosesAndKeepBatchesAtomic) {
    const auto path = BV1Database().path();
    const std::string countRows = "SELECT count(*) FROM log";
    {
        WriteGroup outer;
        ASSERT_TRUE(Log::save(logRow("one")));
        {
            WriteGroup inner;
            ASSERT_TRUE(Log::save(logRow("two")));
        }
        // This process reads its own writes at once; other programs see nothing yet.
        EXPECT_THAT(storedMessages(), ElementsAre("one", "two"));
        EXPECT_THAT(sqliteRows(path, countRows), ElementsAre("0"));

        // A batch that fails part-way undoes only itself, not the group's earlier rows.
        EXPECT_FALSE(BV1Database::executeBatch({{"INSERT INTO log (message) VALUES (?)", {std::string("lost")}},
                                                {"INSERT INTO no_such_table VALUES (1)", {}}}));
        EXPECT_TRUE(BV1Database::executeBatch({{"INSERT INTO log (message) VALUES (?)", {std::string("three")}}}));
    }
    EXPECT_THAT(sqliteRows(path, "SELECT message FROM log"), ElementsAre("one", "two", "three"));

    // Moving the file away while a group is open keeps what the group wrote so far in
    // the archive; its later writes go to the new file.
    {
        WriteGroup group;
        ASSERT_TRUE(Log::save(logRow("before the move")));
        BV1Database().moveAndRenameDatabase("archive");
        ASSERT_TRUE(Log::save(logRow("after the move")));
    }
    EXPECT_THAT(sqliteRows(sim().documentsDirectory() + "/archive.sqlite", countRows), ElementsAre("4"));
    EXPECT_THAT(sqliteRows(path, "SELECT message FROM log"), ElementsAre("after the move"));
}

TEST_F(BV1DatabaseTest, AHandedOnCommitWaitsForItsAdopterButHoldsNobodyElseUp) {
    const auto path = BV1Database().path();
    auto committed = [&] { return sqliteScalar(path, "SELECT count(*) FROM log"); };
    std::optional<PendingCommit> handed;
    {
        WriteGroup update;
        ASSERT_TRUE(Log::save(logRow("update")));
        handed.emplace();
    }
    EXPECT_EQ(committed(), "0") << "the update's rows wait for the job it handed its commit to";
    {
        WriteGroup job(std::move(*handed));
        ASSERT_TRUE(Log::save(logRow("job")));
    }
    EXPECT_EQ(committed(), "2") << "and go in the job's commit";

    // Nobody else waits for an adopter: another thread's group commits when it
    // closes, and a write outside any group commits what waits before it runs.
    for (const bool inGroup : {true, false}) {
        {
            WriteGroup update;
            ASSERT_TRUE(Log::save(logRow("update")));
            handed.emplace();
        }
        std::thread([inGroup] {
            std::optional<WriteGroup> group;
            if (inGroup) group.emplace();
            EXPECT_TRUE(Log::save(logRow("another thread")));
        }).join();
        EXPECT_EQ(committed(), inGroup ? "4" : "6");
        handed.reset();
    }
}

} // namespace
} // namespace bvgeo::testing
