// The program killed with SIGKILL at random moments of a replay with durable
// delivery, relaunched each time on the same data directory, against a trigger API
// that fails a share of the reports: in the end every trigger the device stored has
// reached the server, no report is stored there twice, and the outbox is empty.
#include "ReferenceHttpServer.hpp"

#include "support/Program.hpp"
#include "support/SqliteFile.hpp"
#include "support/TempDir.hpp"

#include "zone/ZoneBuilder.hpp"
#include "zone/ZoneGrid.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <set>

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;
using testing::sqliteRows;
using testing::sqliteScalar;

constexpr int kRounds = 20;

// A walk that passes through three fences with stays long enough to linger: about
// 40 triggers, a fix every 20 seconds.
std::string writeTrack(const fs::path& file) {
    std::ofstream out(file);
    out.precision(10);
    out << "time,lat,lon\n";
    double t = 1'400'000'000;
    for (int fence = 0; fence < 3; ++fence) {
        const double lat = 51.30 + 0.01 * fence;
        for (int i = 0; i < 30; ++i, t += 20) out << t << ',' << lat - 0.02 << ',' << 0.70 + i * 1e-5 << '\n';
        for (int i = 0; i < 200; ++i, t += 20) out << t << ',' << lat + (i % 2) * 1e-5 << ',' << 0.70 << '\n';
    }
    for (int i = 0; i < 30; ++i, t += 20) out << t << ',' << 51.20 << ',' << 0.70 + i * 1e-5 << '\n';
    return file.string();
}

TEST(DurableDeliveryKillTest, EveryStoredTriggerReachesTheServerOnceAcrossKilledRuns) {
    const testing::TempDir root("bvgeo-durablekill");
    fs::create_directories(root / "server/demo/zones");
    std::vector<Fence> fences;
    for (int fence = 0; fence < 3; ++fence)
        fences.push_back({"f" + std::to_string(fence), "Fence " + std::to_string(fence), 51.30 + 0.01 * fence, 0.70,
                          300.0, {}});
    std::ofstream(root / "server/demo/zones" / getZoneName(51.30, 0.70, 0.2)) << zoneFileText(fences);
    const std::string track = writeTrack(root / "walk.csv");

    ReferenceServerOptions options;
    options.rootDirectory = (root / "server").string();
    options.triggerDatabasePath = (root / "server/triggers.sqlite").string();
    // Requests fail now and then, so some reports wait in the retry list when a kill comes.
    options.failRate = 0.3;
    ReferenceHttpServer server(options);
    ASSERT_TRUE(server.start(0)) << server.error();

    const fs::path device = root / "device";
    auto words = [&](double drain) {
        return std::vector<std::string>{BVGEO_CLI_PATH,   "replay",      track,
                                        "--api-base",     server.apiBaseUrl(), "--assets-base",
                                        server.assetsBaseUrl(), "--data-dir", device.string(),
                                        "--durable-delivery", "--distance-filter", "none",
                                        "--drain",        std::to_string(drain), "--json"};
    };

    std::mt19937 random(20141110);
    int killed = 0;
    for (int round = 0; round < kRounds; ++round)
        killed += testing::runProgram(words(600), std::uniform_int_distribution<int>(0, 40)(random)).killed();
    EXPECT_GE(killed, kRounds / 2) << "most rounds end in a kill";
    const int status = testing::runProgram(words(3600), -1).status;
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    // Every trigger the device stored went out; the server stored each report once.
    server.stop();
    const std::string serverFile = options.triggerDatabasePath;
    const std::string columns = "SELECT event, CAST(timestamp AS INTEGER), fence_id FROM ";
    const auto receivedRows = sqliteRows(serverFile, columns + "triggers");
    const std::multiset<std::string> received(receivedRows.begin(), receivedRows.end());
    EXPECT_EQ(sqliteScalar(serverFile, "SELECT count(*) FROM triggers WHERE idempotency_key IS NULL"), "0")
        << "every report carries a key";
    EXPECT_EQ(sqliteScalar(serverFile, "SELECT count(*) - count(DISTINCT idempotency_key) FROM triggers"), "0");
    const auto duplicates = sqliteScalar(serverFile, "SELECT coalesce(sum(duplicates), 0) FROM triggers");
    const auto storedRows = sqliteRows((device / "BVGDatabase.sqlite").string(), columns + "trigger");
    const std::multiset<std::string> stored(storedRows.begin(), storedRows.end());
    ASSERT_FALSE(stored.empty());
    for (const auto& trigger : stored) EXPECT_GE(received.count(trigger), stored.count(trigger)) << trigger;
    EXPECT_EQ(sqliteScalar((device / "BVGOutbox.sqlite").string(), "SELECT count(*) FROM reports"), "0");
    std::cout << "kill loop: " << killed << " rounds killed, " << stored.size() << " triggers stored, "
              << received.size() << " reports received, " << duplicates << " repeats answered as duplicates\n";
}

} // namespace
} // namespace bvgeo::cli
