// kill -9 at random points of the Kent replay: the real program, run on one data
// directory and killed again and again, must leave a database that passes
// integrity_check and holds every trigger the program printed (printing happens in
// the delegate, so this is "durable before announced"), and a settings file that parses.
#include "ReferenceHttpServer.hpp"

#include "support/Program.hpp"
#include "support/SqliteFile.hpp"
#include "support/TempDir.hpp"

#include "zone/ZoneBuilder.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <iostream>
#include <random>
#include <set>
#include <sstream>

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;
using testing::sqliteRows;

#ifdef BVGEO_CLI_PATH

TEST(KillLoop, ReplayKilledAtRandomPointsLeavesAWholeDatabaseWithEveryPrintedTrigger) {
    const testing::TempDir root("bvgeo-killloop");
    const auto zones = buildZones(std::string(BVGEO_TEST_EXAMPLES_DIR) + "/kent-places.csv",
                                  (root / "server/demo/zones").string(), {});
    ASSERT_TRUE(zones.ok) << zones.error;
    ReferenceServerOptions options;
    options.rootDirectory = (root / "server").string();
    options.triggerDatabasePath = (root / "server/triggers.sqlite").string();
    ReferenceHttpServer server(options);
    ASSERT_TRUE(server.start(0)) << server.error();

    const fs::path device = root / "device";
    const std::string database = (device / "BVGDatabase.sqlite").string();
    const std::vector<std::string> words = {BVGEO_CLI_PATH,
                                            "replay",
                                            std::string(BVGEO_TEST_EXAMPLES_DIR) + "/kent-run-2014-05-10.gpx",
                                            "--json",
                                            "--api-base",
                                            server.apiBaseUrl(),
                                            "--assets-base",
                                            server.assetsBaseUrl(),
                                            "--data-dir",
                                            device.string(),
                                            // paced over a few seconds, so the program is still busy
                                            // storing and sending when the kill comes
                                            "--speed",
                                            "3000"};
    // A whole run prints 46 triggers and a summary; a kill after at most 36 lines
    // lands mid-run, and the program writes on between our read and the signal.
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> killAfterLines(0, 36);
    constexpr int kRounds = 24;
    int killed = 0;
    std::size_t printedTotal = 0;
    std::string triggersBefore = "0";
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const auto run = testing::runProgram(words, killAfterLines(random));
        ASSERT_NE(run.status, -1);
        killed += run.killed();

        // What the delegate printed: whole lines only (the kill may cut the last).
        std::multiset<std::string> printed;
        std::istringstream lines(run.output);
        for (std::string line; std::getline(lines, line);) {
            auto json = nlohmann::json::parse(line, nullptr, false);
            if (json.is_discarded() || !json.contains("event")) continue;
            printed.insert(json["event"].get<std::string>() + "|" + json["fenceId"].get<std::string>() + "|" +
                           std::to_string(json["timestamp"].get<std::int64_t>()));
        }
        printedTotal += printed.size();

        if (!fs::exists(database)) {
            EXPECT_TRUE(printed.empty());
            continue;
        }
        EXPECT_EQ(sqliteRows(database, "PRAGMA integrity_check"), std::vector<std::string>{"ok"});
        const auto rows = sqliteRows(database, "SELECT event, fence_id, CAST(timestamp AS INTEGER) FROM trigger "
                                               "WHERE id > " + triggersBefore);
        const std::multiset<std::string> stored(rows.begin(), rows.end());
        for (const auto& trigger : printed)
            EXPECT_GE(stored.count(trigger), printed.count(trigger)) << trigger << " was printed but is not stored";
        // Empty when a kill came before the table did.
        const auto latest = testing::sqliteScalar(database, "SELECT coalesce(max(id), 0) FROM trigger");
        if (!latest.empty()) triggersBefore = latest;

        if (fs::exists(device / "bvgeo-settings.json")) {
            const auto settings = testing::readFile(device / "bvgeo-settings.json");
            EXPECT_TRUE(nlohmann::json::parse(settings, nullptr, false).is_object()) << settings;
        }
    }
    EXPECT_GE(killed, 20) << "rounds killed before they finished";
    std::cout << "[ stats    ] " << killed << " of " << kRounds << " rounds killed; " << printedTotal
              << " printed triggers, all stored\n";
    EXPECT_GT(printedTotal, 0u) << "some rounds got as far as a trigger";
    server.stop();
}

#endif

} // namespace
} // namespace bvgeo::cli
