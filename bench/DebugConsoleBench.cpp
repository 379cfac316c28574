// Opening the debug console's log page on a large log: the page itself and its
// first page of rows, over real HTTP on loopback, against a database of 1,000,000
// log rows. "All rows" reads from the newest end; a rare category (one row in a
// thousand) makes the query walk back past many rows to fill its page.
#include "datastore/BV1Database.hpp"
#include "platform/SharedInstance.hpp"

#include <bvgeo/DebugConsole.hpp>
#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>

#include <benchmark/benchmark.h>
#include <httplib.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace {

constexpr int kRows = 1'000'000;

// One database of a million rows for every case, made once, removed at exit.
class LargeLog {
public:
    LargeLog() {
        auto pattern = (std::filesystem::temp_directory_path() / "bvgeo-bench-XXXXXX").string();
        if (char* made = mkdtemp(pattern.data())) directory_ = made;
        bvgeo::LinuxPlatformOptions options;
        options.documentsDirectory = directory_;
        bvgeo::resetAllSharedInstances();
        bvgeo::installPlatform(bvgeo::makeLinuxPlatform(options));
        const std::string path = bvgeo::BV1Database().path(); // creates the file with its schema
        bvgeo::BV1Database::closeAll();

        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO log (message, category, timestamp) VALUES (?, ?, ?)", -1, &insert, nullptr);
        for (int i = 0; i < kRows; ++i) {
            const std::string message = "[2026-11-23 12:00:00] - getFenceList(_:lng:success:) [Line 59]: Zone not changed #" +
                                        std::to_string(i);
            sqlite3_bind_text(insert, 1, message.c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_text(insert, 2, i % 1000 == 0 ? "CLIENT" : "ZONE", -1, SQLITE_STATIC);
            sqlite3_bind_int64(insert, 3, 1'700'000'000 + i);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_close(db);

        console_ = std::make_unique<bvgeo::DebugConsole>();
        console_->start();
    }
    ~LargeLog() {
        console_.reset();
        bvgeo::resetAllSharedInstances();
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    int port() const { return console_->port(); }

private:
    std::string directory_;
    std::unique_ptr<bvgeo::DebugConsole> console_;
};

LargeLog& largeLog() {
    static LargeLog log;
    return log;
}

void openLogPage(benchmark::State& state, const char* rowsPath) {
    httplib::Client http("127.0.0.1", largeLog().port());
    std::size_t bytes = 0;
    for (auto _ : state) {
        auto page = http.Get("/log");
        auto rows = http.Get(rowsPath);
        if (!page || !rows || page->status != 200 || rows->status != 200) {
            state.SkipWithError("the console did not answer");
            return;
        }
        bytes = page->body.size() + rows->body.size();
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}

void BM_OpenLogPageOfMillionRows(benchmark::State& state) { openLogPage(state, "/api/logs?filter=NONE&limit=500"); }
BENCHMARK(BM_OpenLogPageOfMillionRows)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OpenLogPageOfMillionRowsRareCategory(benchmark::State& state) {
    openLogPage(state, "/api/logs?filter=CLIENT&limit=500");
}
BENCHMARK(BM_OpenLogPageOfMillionRowsRareCategory)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
