// kill -9 at random moments: the Kent replay, run by the real program on one data
// directory and killed again and again, must leave a database that passes
// integrity_check and holds every trigger the program printed (printing happens in
// the delegate, so this is "durable before announced"), and a settings file that parses.
#include "ReferenceHttpServer.hpp"

#include "zone/ZoneBuilder.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include <fcntl.h>
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
#include <sstream>
#include <thread>
#include <tuple>

extern char** environ;

namespace bvgeo::cli {
namespace {

namespace fs = std::filesystem;

#if defined(BVGEO_CLI_PATH) && defined(BVGEO_EXAMPLES_DIR)

using TriggerKey = std::tuple<std::string, std::string, std::int64_t>; // event, fence, time

// Starts the program with stdout to `output`; its pid.
pid_t spawn(const std::vector<std::string>& words, const fs::path& output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv;
    std::vector<std::string> copy = words;
    for (auto& word : copy) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

struct DatabaseState {
    std::string integrity;
    std::int64_t maxTriggerId = 0;
    std::multiset<TriggerKey> triggersAfter; // rows above the given id
};

DatabaseState inspect(const fs::path& path, std::int64_t afterId) {
    DatabaseState state;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return state;
    }
    // Leave the files as the killed program left them for the next round.
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_busy_timeout(db, 5000);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr);
    while (sqlite3_step(statement) == SQLITE_ROW)
        state.integrity += reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    sqlite3_finalize(statement);
    sqlite3_prepare_v2(db, "SELECT id, event, fence_id, timestamp FROM trigger WHERE id > ?", -1, &statement, nullptr);
    sqlite3_bind_int64(statement, 1, afterId);
    while (sqlite3_step(statement) == SQLITE_ROW) {
        state.maxTriggerId = std::max<std::int64_t>(state.maxTriggerId, sqlite3_column_int64(statement, 0));
        state.triggersAfter.emplace(reinterpret_cast<const char*>(sqlite3_column_text(statement, 1)),
                                    reinterpret_cast<const char*>(sqlite3_column_text(statement, 2)),
                                    sqlite3_column_int64(statement, 3));
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    if (state.maxTriggerId < afterId) state.maxTriggerId = afterId;
    return state;
}

TEST(KillLoop, ReplayKilledAtRandomMomentsLeavesAWholeDatabaseWithEveryPrintedTrigger) {
    const fs::path root = fs::temp_directory_path() / ("bvgeo-kill-" + std::to_string(::getpid()));
    fs::remove_all(root);
    fs::create_directories(root / "server");
    const auto zones = buildZones(std::string(BVGEO_EXAMPLES_DIR) + "/kent-places.csv",
                                  (root / "server" / "demo" / "zones").string(), {});
    ASSERT_TRUE(zones.ok) << zones.error;
    ReferenceServerOptions options;
    options.rootDirectory = (root / "server").string();
    options.triggerDatabasePath = (root / "server" / "triggers.sqlite").string();
    ReferenceHttpServer server(options);
    ASSERT_TRUE(server.start(0)) << server.error();

    const fs::path device = root / "device";
    const std::vector<std::string> words = {BVGEO_CLI_PATH,
                                            "replay",
                                            std::string(BVGEO_EXAMPLES_DIR) + "/kent-run-2014-05-10.gpx",
                                            "--json",
                                            "--api-base",
                                            server.apiBaseUrl(),
                                            "--assets-base",
                                            server.assetsBaseUrl(),
                                            "--data-dir",
                                            device.string(),
                                            // paced to last at least 2.4 s, so every kill lands mid-run
                                            "--speed",
                                            "3000"};
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> delayMs(30, 2000);
    constexpr int kRounds = 24;
    int killed = 0;
    std::size_t printedTotal = 0;
    std::int64_t triggersBefore = 0;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const fs::path output = root / ("out-" + std::to_string(round) + ".jsonl");
        const pid_t pid = spawn(words, output);
        ASSERT_GT(pid, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs(random)));
        if (::kill(pid, SIGKILL) == 0) ++killed;
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        if (!WIFSIGNALED(status)) --killed; // it finished before the signal came

        // What the delegate printed: whole lines only (the kill may cut the last).
        std::multiset<TriggerKey> printed;
        std::ifstream in(output);
        for (std::string line; std::getline(in, line);) {
            auto json = nlohmann::json::parse(line, nullptr, false);
            if (json.is_discarded() || !json.contains("event")) continue;
            printed.emplace(json["event"], json["fenceId"], json["timestamp"].get<std::int64_t>());
        }
        printedTotal += printed.size();

        const fs::path database = device / "BVGDatabase.sqlite";
        if (!fs::exists(database)) {
            EXPECT_TRUE(printed.empty());
            continue;
        }
        const auto state = inspect(database, triggersBefore);
        EXPECT_EQ(state.integrity, "ok");
        for (const auto& trigger : printed)
            EXPECT_EQ(state.triggersAfter.count(trigger) >= printed.count(trigger), true)
                << std::get<0>(trigger) << " " << std::get<1>(trigger) << " " << std::get<2>(trigger)
                << " was printed but is not in the trigger table";
        triggersBefore = state.maxTriggerId;

        if (fs::exists(device / "bvgeo-settings.json")) {
            std::ifstream settings(device / "bvgeo-settings.json");
            std::stringstream text;
            text << settings.rdbuf();
            EXPECT_TRUE(nlohmann::json::parse(text.str(), nullptr, false).is_object()) << text.str();
        }
    }
    EXPECT_GE(killed, 20) << "rounds killed before they finished";
    std::cout << "[ stats    ] " << killed << " of " << kRounds << " rounds killed; " << printedTotal
              << " printed triggers, all stored\n";
    EXPECT_GT(printedTotal, 0u) << "some rounds got as far as a trigger";
    server.stop();
    fs::remove_all(root);
}

#endif

} // namespace
} // namespace bvgeo::cli
