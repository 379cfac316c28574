// The database file under damage, faults and growth: damaged files go aside and a
// fresh one takes over, a failed archive move leaves the file in use, row limits keep
// the newest rows, and the mail report attaches every committed row.
#include "support/SqliteFile.hpp"
#include "support/LibraryTest.hpp"
#include "support/StoredLogs.hpp"
#include "support/FaultyFiles.hpp"
#include "support/TempDir.hpp"

#include "datastore/BV1Database.hpp"
#include "datastore/DatabaseConnection.hpp"
#include "debug/LogViewerViewController.hpp"
#include "logger/Logger.hpp"
#include "models/DebugLocation.hpp"
#include "models/Log.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/testing/ForwardingPlatform.hpp>

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace bvgeo::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

void overwrite(const std::string& path, std::streamoff offset, const std::string& bytes) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offset);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string randomBytes(std::size_t count) {
    std::mt19937 random(12);
    std::string bytes(count, '\0');
    for (auto& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

std::vector<std::string> corruptFiles(const std::string& directory) {
    return filesIn(directory, "BVGDatabase.corrupt-", ".sqlite");
}

class StorageRecoveryTest : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        Logger::setDebugMode(false); // the console then holds warnings only
    }
};

TEST_F(StorageRecoveryTest, DamagedDatabaseGoesAsideAndAFreshFileTakesOver) {
    // The manual clock reads 2017-07-14 02:40:00 UTC, the testing bundle's local time.
    const std::string directory = sim().documentsDirectory();
    const std::string path = BV1Database().path();
    Logger::log("first life", LogCategory::CLIENT, "test", 1);

    // 1. Not a database at all, found when opening.
    BV1Database::closeAll();
    std::ofstream(path, std::ios::binary | std::ios::trunc) << std::string(8192, 'x');
    Logger::log("second life", LogCategory::CLIENT, "test", 2);
    EXPECT_THAT(corruptFiles(directory), ElementsAre("BVGDatabase.corrupt-20170714-024000.sqlite"));
    EXPECT_EQ(sqliteScalar(directory + "/BVGDatabase.corrupt-20170714-024000.sqlite", "SELECT count(*) FROM sqlite_master"), "")
        << "moved as it was";
    auto general = storedLines(LogCategory::GENERAL);
    ASSERT_EQ(general.size(), 1u);
    EXPECT_THAT(general[0], AllOf(HasSubstr("createDatabase() [Line 0]: The database file was damaged ("),
                                  HasSubstr("): moved to " + directory + "/BVGDatabase.corrupt-20170714-024000.sqlite"
                                            "; a new file was started")));
    EXPECT_THAT(sim().console->logLines(), ElementsAre(general[0].substr(general[0].find("The database"))));
    EXPECT_THAT(storedLines(LogCategory::CLIENT), ElementsAre("test [Line 2]: second life"));
    EXPECT_EQ(BV1Database().replacements(), 1u);

    // 2. A page overwritten with 4 KiB of noise: PRAGMA quick_check finds it at the
    //    next open. The name is taken, so "-2" follows the time.
    for (int i = 0; i < 200; ++i) Logger::log(std::string(300, 'a' + i % 26), LogCategory::CLIENT, "test", 3);
    BV1Database::closeAll();
    overwrite(path, 4096, randomBytes(4096));
    EXPECT_EQ(Log::getLogsFromDatabase(LogCategory::CLIENT).size(), 0u) << "the fresh file holds no client rows";
    EXPECT_THAT(corruptFiles(directory), ElementsAre("BVGDatabase.corrupt-20170714-024000-2.sqlite",
                                                     "BVGDatabase.corrupt-20170714-024000.sqlite"));
    EXPECT_EQ(sqliteScalar(path, "SELECT count(*) FROM sqlite_master WHERE type = 'table'"), "5");
    EXPECT_EQ(storedLines(LogCategory::GENERAL).size(), 1u);

    // 3. Damage a statement meets while the file is open (the cache dropped, so the
    //    pages are read again): the same recovery, and the next write lands.
    for (int i = 0; i < 200; ++i) Logger::log(std::string(300, 'b'), LogCategory::CLIENT, "test", 4);
    BV1Database::closeAll();
    EXPECT_TRUE(BV1Database::executeStatements("PRAGMA quick_check")); // opened sound
    overwrite(path, 4096, randomBytes(4096));
    BV1Database().getDatabase().executeStatements("PRAGMA shrink_memory");
    Log::getLogsFromDatabase(LogCategory::CLIENT);
    EXPECT_EQ(corruptFiles(directory).size(), 3u);
    EXPECT_EQ(BV1Database().replacements(), 3u);
    EXPECT_TRUE(Log::save(Log{"", "after", LogCategory::CLIENT, 1}));
    EXPECT_THAT(storedMessages(LogCategory::CLIENT), ElementsAre("after"));
    EXPECT_EQ(sqliteScalar(path, "PRAGMA integrity_check"), "ok");
}

TEST_F(StorageRecoveryTest, UnwritableDirectoryFailsQuietlyAndWorksOnceWritable) {
    const std::string directory = sim().documentsDirectory();
    Logger::log("before", LogCategory::CLIENT, "test", 1);
    BV1Database::closeAll();
    fs::permissions(directory, fs::perms::owner_read | fs::perms::owner_exec);
    if (std::ofstream(directory + "/probe")) GTEST_SKIP() << "running as root: permissions do not bind";

    // The file is there but its WAL cannot be made: reads see no rows, writes fail,
    // and the console says so once, however many rows fail.
    for (int i = 0; i < 20; ++i) EXPECT_FALSE(Log::save(Log{"", "lost", LogCategory::CLIENT, 1}));
    EXPECT_TRUE(Log::getLogsFromDatabase().empty());
    EXPECT_EQ(sim().console->logLines().size(), 1u);
    EXPECT_TRUE(corruptFiles(directory).empty()) << "a fault is not damage";

    fs::permissions(directory, fs::perms::owner_all);
    EXPECT_TRUE(Log::save(Log{"", "back", LogCategory::CLIENT, 1}));
    EXPECT_THAT(storedLines(LogCategory::CLIENT), ElementsAre("test [Line 1]: before", "back"));
}

TEST_F(StorageRecoveryTest, FailingRenameInResetKeepsTheFileInUseAndTheNextResetWorks) {
    // A file system that refuses every move, as a full or read-only volume would.
    auto files = installWrapped<FaultyFiles>();
    files->refuseMoves = true;

    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.configure("app", 0, 3);
    tracker.log("kept");
    const auto deviceId = tracker.getDeviceId();
    int successes = 0, failures = 0;
    tracker.reset("archive", [&] { ++successes; }, [&](const BVError&) { ++failures; });
    // The documented path: the move reports on the console, reset still succeeds.
    EXPECT_EQ(successes, 1);
    EXPECT_EQ(failures, 0);
    EXPECT_THAT(sim().console->printedLines(),
                ElementsAre(HasSubstr("Moved failed with error: Cannot move \"" + BV1Database().path())));
    EXPECT_FALSE(BV1Database().checkIfNewFileExists("archive"));
    EXPECT_THAT(storedLines(LogCategory::CLIENT), ElementsAre("log [Line 161]: kept"));
    tracker.log("still writing");
    EXPECT_EQ(storedLines(LogCategory::CLIENT).size(), 2u);
    EXPECT_NE(tracker.getDeviceId(), deviceId) << "the settings were cleared all the same";

    files->refuseMoves = false;
    tracker.reset("archive", [&] { ++successes; }, [&](const BVError&) { ++failures; });
    EXPECT_EQ(successes, 2);
    EXPECT_TRUE(BV1Database().checkIfNewFileExists("archive"));
    EXPECT_EQ(sqliteScalar(sim().documentsDirectory() + "/archive.sqlite", "SELECT count(*) FROM log WHERE category = "
                                                                      "'CLIENT'"),
              "2");
    EXPECT_TRUE(storedLines(LogCategory::CLIENT).empty());
}

TEST_F(StorageRecoveryTest, RowLimitsKeepTheNewestRowsAndTrimInTheCommitsThatAddThem) {
    ExtendedOptions options;
    options.maxLogRows = 1000;
    options.maxLocationRows = 50;
    BVGeoTracker::sharedInstance().setExtendedOptions(options);
    const auto path = BV1Database().path();
    auto count = [&](const char* table) { return std::stoi(sqliteScalar(path, std::string("SELECT count(*) FROM ") + table)); };

    // Rows on their own commits: trimmed every hundredth row (a tenth of the limit).
    for (int i = 1; i <= 3000; ++i) ASSERT_TRUE(Log::save(Log{"", "row " + std::to_string(i), LogCategory::CLIENT, 1}));
    EXPECT_EQ(count("log"), 1000) << "3000 is a multiple of the batch";
    EXPECT_EQ(sqliteScalar(path, "SELECT message FROM log ORDER BY id LIMIT 1"), "row 2001");
    Log::save(Log{"", "row 3001", LogCategory::CLIENT, 1});
    EXPECT_EQ(count("log"), 1001) << "not one DELETE per insert";
    // Rows of write groups: trimmed in the commit that makes a tenth of the limit due.
    for (int group = 0; group < 50; ++group) {
        WriteGroup writes;
        for (int i = 0; i < 25; ++i) {
            Log::save(Log{"", "grouped", LogCategory::CLIENT, 1});
            DebugLocation::saveDebugLocation(51.0 + i, 0.5, "LocationTracker");
        }
    }
    EXPECT_LE(count("log"), 1000 + 100);
    EXPECT_LE(count("locations"), 50 + 25) << "more than a tenth in one commit: trimmed in it";

    // Closing trims to the limit exactly; the newest rows stay.
    BV1Database::closeAll();
    EXPECT_EQ(count("log"), 1000);
    EXPECT_EQ(count("locations"), 50);
    EXPECT_EQ(sqliteScalar(path, "SELECT max(id) - min(id) + 1 FROM log"), "1000");
    EXPECT_EQ(sqliteScalar(path, "SELECT min(id) FROM locations"), "1201") << "the newest 50 of 1250";

    // Without a limit nothing is deleted.
    BVGeoTracker::sharedInstance().setExtendedOptions({});
    for (int i = 0; i < 500; ++i) Log::save(Log{"", "unbounded", LogCategory::CLIENT, 1});
    BV1Database::closeAll();
    EXPECT_EQ(count("log"), 1500);
}

TEST_F(StorageRecoveryTest, MailReportAttachesEveryCommittedRowWhileAWriteGroupIsOpen) {
    for (int i = 0; i < 100; ++i) Logger::log("committed " + std::to_string(i), LogCategory::CLIENT, "test", 1);
    MailReport report;
    {
        // An update is writing: its rows are not committed, and the WAL cannot be
        // checkpointed into the file meanwhile.
        WriteGroup writes;
        Logger::log("uncommitted", LogCategory::CLIENT, "test", 2);
        report = LogViewerViewController::emailReport({});
    }
    auto attachment = std::find_if(report.attachments.begin(), report.attachments.end(),
                                   [](const MailAttachment& a) { return a.fileName == "BVGDatabase.sqlite"; });
    ASSERT_NE(attachment, report.attachments.end());
    const auto copy = sim().documentsDirectory() + "/attached.db";
    std::ofstream(copy, std::ios::binary) << attachment->data;
    EXPECT_EQ(sqliteScalar(copy, "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(sqliteScalar(copy, "SELECT count(*) FROM log WHERE category = 'CLIENT'"), "100");
    EXPECT_EQ(sqliteScalar(copy, "SELECT count(*) FROM log WHERE message LIKE '%uncommitted'"), "0");
    fs::remove(copy);
}

} // namespace
} // namespace bvgeo::testing
