// The program killed with SIGKILL at random moments of a replay with durable
// delivery, relaunched each time on the same data directory, against a trigger API
// that fails a share of the reports: in the end every trigger the device stored has
// reached the server, no report is stored there twice, and the outbox is empty.
#include "ReferenceHttpServer.hpp"

#include "support/SqliteFile.hpp"

#include "zone/ZoneBuilder.hpp"
#include "zone/ZoneGrid.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <tuple>

extern char** environ;

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;
using Report = std::tuple<std::string, std::int64_t, std::string>; // event, timestamp, fence id

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

// Runs the program; kills it once `killAfterLines` lines came out (never when
// negative). Returns its wait status.
int runProgram(const std::vector<std::string>& words, int killAfterLines) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv;
    for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    pid_t child = -1;
    const int spawned = posix_spawn(&child, words[0].c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    if (spawned != 0) {
        ::close(pipeFds[0]);
        return -1;
    }
    if (killAfterLines == 0) ::kill(child, SIGKILL);
    int lines = 0;
    char buffer[4096];
    ssize_t n;
    while ((n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0) {
        for (ssize_t i = 0; i < n; ++i) lines += buffer[i] == '\n';
        if (killAfterLines > 0 && lines >= killAfterLines) {
            ::kill(child, SIGKILL);
            break;
        }
    }
    ::close(pipeFds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
}

std::multiset<Report> deviceTriggers(const fs::path& database) {
    std::multiset<Report> out;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* select = nullptr;
        sqlite3_prepare_v2(db, "SELECT event, timestamp, fence_id FROM trigger", -1, &select, nullptr);
        while (select && sqlite3_step(select) == SQLITE_ROW)
            out.emplace(reinterpret_cast<const char*>(sqlite3_column_text(select, 0)), sqlite3_column_int64(select, 1),
                        reinterpret_cast<const char*>(sqlite3_column_text(select, 2)));
        sqlite3_finalize(select);
    }
    sqlite3_close(db);
    return out;
}


TEST(DurableDeliveryKillTest, EveryStoredTriggerReachesTheServerOnceAcrossKilledRuns) {
    const fs::path root = fs::temp_directory_path() / ("bvgeo-kill-" + std::to_string(::getpid()));
    fs::remove_all(root);
    fs::create_directories(root / "server" / "demo" / "zones");
    std::vector<Fence> fences;
    for (int fence = 0; fence < 3; ++fence)
        fences.push_back({"f" + std::to_string(fence), "Fence " + std::to_string(fence), 51.30 + 0.01 * fence, 0.70,
                          300.0, {}});
    std::ofstream(root / "server" / "demo" / "zones" / getZoneName(51.30, 0.70, 0.2)) << zoneFileText(fences);
    const std::string track = writeTrack(root / "walk.csv");

    ReferenceServerOptions options;
    options.rootDirectory = (root / "server").string();
    options.triggerDatabasePath = (root / "server" / "triggers.sqlite").string();
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
    for (int round = 0; round < kRounds; ++round) {
        const int status = runProgram(words(600), std::uniform_int_distribution<int>(0, 40)(random));
        killed += WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }
    EXPECT_GE(killed, kRounds / 2) << "most rounds end in a kill";
    const int status = runProgram(words(3600), -1);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;

    // Every trigger the device stored went out; the server stored each report once.
    server.stop();
    std::multiset<Report> received;
    std::set<std::string> keys;
    std::int64_t duplicates = 0;
    {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open_v2(options.triggerDatabasePath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
        sqlite3_stmt* select = nullptr;
        sqlite3_prepare_v2(db, "SELECT event, timestamp, fence_id, idempotency_key, duplicates FROM triggers", -1,
                           &select, nullptr);
        while (select && sqlite3_step(select) == SQLITE_ROW) {
            received.emplace(reinterpret_cast<const char*>(sqlite3_column_text(select, 0)),
                             sqlite3_column_int64(select, 1),
                             reinterpret_cast<const char*>(sqlite3_column_text(select, 2)));
            const auto key = sqlite3_column_text(select, 3);
            ASSERT_NE(key, nullptr) << "every report carries a key";
            EXPECT_TRUE(keys.insert(reinterpret_cast<const char*>(key)).second);
            duplicates += sqlite3_column_int64(select, 4);
        }
        sqlite3_finalize(select);
        sqlite3_close(db);
    }
    const auto stored = deviceTriggers(device / "BVGDatabase.sqlite");
    ASSERT_FALSE(stored.empty());
    for (const auto& trigger : stored)
        EXPECT_GE(received.count(trigger), stored.count(trigger))
            << std::get<0>(trigger) << " " << std::get<1>(trigger) << " " << std::get<2>(trigger);
    EXPECT_EQ(testing::sqliteScalar((device / "BVGOutbox.sqlite").string(), "SELECT count(*) FROM reports"), "0");
    std::cout << "kill loop: " << killed << " rounds killed, " << stored.size() << " triggers stored, " << received.size() << " reports received, " << duplicates << " repeats answered as duplicates\n";
    fs::remove_all(root);
}

} // namespace
} // namespace bvgeo::cli
