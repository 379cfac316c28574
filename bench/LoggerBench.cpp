// Logger::log against the cost a naive store would pay per row: open the file,
// prepare the insert, run it, close, with SQLite's default rollback journal and
// full synchronous writes. Both write into a fresh file in a temporary directory.
// The argument of the Logger cases is ExtendedOptions::maxLogRows (0: unbounded, the
// default), so the cost of trimming the oldest rows shows beside the plain insert;
// the grouped case writes 20 rows per commit, as one location update does.
#include "TemporaryDirectory.hpp"

#include "datastore/DatabaseConnection.hpp"
#include "logger/Logger.hpp"
#include "platform/SharedInstance.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using bvgeo::bench::TemporaryDirectory;

// Installs the Linux platform on `directory` with the given log limit; false when it
// could not. Debug echo off: the row is what is measured.
bool installLogger(const std::string& directory, std::size_t maxLogRows) {
    bvgeo::LinuxPlatformOptions options;
    options.documentsDirectory = directory;
    options.mainQueueOnOwnThread = false;
    bvgeo::resetAllSharedInstances();
    if (!bvgeo::installPlatform(bvgeo::makeLinuxPlatform(options))) return false;
    bvgeo::ExtendedOptions extended;
    extended.maxLogRows = maxLogRows;
    bvgeo::BVGeoTracker::sharedInstance().setExtendedOptions(extended);
    bvgeo::Logger::setDebugMode(false);
    return true;
}

void BM_LoggerLog(benchmark::State& state) {
    TemporaryDirectory directory;
    if (!installLogger(directory.path(), static_cast<std::size_t>(state.range(0)))) {
        state.SkipWithError("cannot install the platform");
        return;
    }
    for (auto _ : state)
        bvgeo::Logger::log("Zone not changed", bvgeo::LogCategory::ZONE, "processZone()", 212);
    state.SetItemsProcessed(state.iterations());
    bvgeo::resetAllSharedInstances(); // closes the file before its directory goes
}
BENCHMARK(BM_LoggerLog)->Arg(0)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_LoggerLogGrouped(benchmark::State& state) {
    TemporaryDirectory directory;
    if (!installLogger(directory.path(), static_cast<std::size_t>(state.range(0)))) {
        state.SkipWithError("cannot install the platform");
        return;
    }
    for (auto _ : state) {
        bvgeo::WriteGroup update;
        for (int i = 0; i < 20; ++i)
            bvgeo::Logger::log("Zone not changed", bvgeo::LogCategory::ZONE, "processZone()", 212);
    }
    state.SetItemsProcessed(state.iterations() * 20);
    bvgeo::resetAllSharedInstances();
}
BENCHMARK(BM_LoggerLogGrouped)->Arg(0)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_NaiveOpenClosePerRow(benchmark::State& state) {
    TemporaryDirectory directory;
    const auto path = directory.path() + "/BVGDatabase.sqlite";
    {
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        sqlite3_exec(db,
                     "CREATE TABLE IF NOT EXISTS log (id INTEGER PRIMARY KEY, message TEXT DEFAULT NULL, "
                     "category TEXT DEFAULT NULL, timestamp INTEGER DEFAULT 0)",
                     nullptr, nullptr, nullptr);
        sqlite3_close(db);
    }
    const std::string message = "[2016-03-01 14:05:09] - processZone() [Line 212]: Zone not changed";
    for (auto _ : state) {
        sqlite3* db = nullptr;
        sqlite3_stmt* insert = nullptr;
        sqlite3_open(path.c_str(), &db);
        sqlite3_prepare_v2(db, "INSERT INTO log (message, category, timestamp) VALUES (?, ?, ?)", -1, &insert,
                           nullptr);
        sqlite3_bind_text(insert, 1, message.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_text(insert, 2, "ZONE", -1, SQLITE_STATIC);
        sqlite3_bind_int64(insert, 3, 1'456'841'109);
        const bool inserted = sqlite3_step(insert) == SQLITE_DONE;
        sqlite3_finalize(insert);
        sqlite3_close(db);
        if (!inserted) {
            state.SkipWithError("insert failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NaiveOpenClosePerRow)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
