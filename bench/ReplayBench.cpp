// A long replay end to end: the example Kent run played three times over (23,235
// fixes, about 6.6 hours of track time), through the library in virtual time, with
// the example places as zone files and the reference server on loopback taking the
// trigger reports. Items are fixes read from the track.
#include "ReferenceHttpServer.hpp"
#include "Replay.hpp"

#include "platform/SharedInstance.hpp"
#include "track/TrackReader.hpp"
#include "zone/ZoneBuilder.hpp"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using namespace bvgeo;

constexpr int kLaps = 3;

void BM_ReplayLongTrack(benchmark::State& state) {
    const fs::path examples = BVGEO_EXAMPLES_DIR;
    const fs::path work = fs::temp_directory_path() / ("bvgeo-replay-bench-" + std::to_string(::getpid()));
    fs::remove_all(work);
    fs::create_directories(work);

    // The run, lap after lap, each lap starting a minute after the last one ended.
    const TrackReadResult run = readTrackFile((examples / "kent-run-2014-05-10.gpx").string());
    if (!run.ok) {
        state.SkipWithError(run.error.c_str());
        return;
    }
    const double lapLength = run.fixes.back().timestamp - run.fixes.front().timestamp + 60.0;
    const auto track = (work / "laps.csv").string();
    {
        std::ofstream csv(track);
        csv << std::setprecision(12) << "time,lat,lon\n";
        for (int lap = 0; lap < kLaps; ++lap)
            for (const auto& fix : run.fixes)
                csv << fix.timestamp + lap * lapLength << ',' << fix.latitude << ',' << fix.longitude << '\n';
    }
    const auto zones =
        buildZones((examples / "kent-places.csv").string(), (work / "server" / "demo" / "zones").string(), {});
    ReferenceServerOptions serverOptions;
    serverOptions.rootDirectory = (work / "server").string();
    serverOptions.triggerDatabasePath = (work / "server" / "triggers.sqlite").string();
    ReferenceHttpServer server(serverOptions);
    if (!zones.ok || !server.start(0)) {
        state.SkipWithError("cannot set up the zones or the server");
        return;
    }

    std::size_t triggers = 0;
    int round = 0;
    for (auto _ : state) {
        cli::ReplayOptions options;
        options.track = track;
        options.apiBase = server.apiBaseUrl();
        options.assetsBase = server.assetsBaseUrl();
        options.dataDir = (work / ("device-" + std::to_string(round++))).string();
        options.json = true;
        std::ostringstream out;
        cli::ReplaySummary summary;
        if (cli::runReplay(options, out, &summary) != 0) state.SkipWithError("the replay failed");
        triggers = summary.enter + summary.linger + summary.exit;
        state.PauseTiming();
        resetAllSharedInstances();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * kLaps *
                            static_cast<std::int64_t>(run.fixes.size()));
    state.counters["fixes"] = static_cast<double>(kLaps * run.fixes.size());
    state.counters["triggers"] = static_cast<double>(triggers);
    server.stop();
    fs::remove_all(work);
}
BENCHMARK(BM_ReplayLongTrack)->Iterations(2)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
