// `bvgeo demo`: everything in one process, nothing but loopback. Builds zone files
// from the example places, serves them with the reference server on a free port,
// replays the example track through the library in virtual time and prints the
// triggers and a summary.
#include "Commands.hpp"
#include "ConsoleHost.hpp"
#include "ReferenceHttpServer.hpp"
#include "Replay.hpp"
#include "SignalLoop.hpp"

#include "Args.hpp"

#include "zone/ZoneBuilder.hpp"

#include <filesystem>
#include <iostream>

#ifndef BVGEO_EXAMPLES_DIR
#define BVGEO_EXAMPLES_DIR "examples/data"
#endif
#ifndef BVGEO_INSTALLED_EXAMPLES_DIR
#define BVGEO_INSTALLED_EXAMPLES_DIR "/usr/local/share/bvgeo/examples"
#endif

namespace bvgeo::cli {

const char* const kDemoHelp = R"(usage: bvgeo demo [--data-dir DIR] [--examples DIR] [--json] [--verbose] [--console [--port N]]

Builds zone files from the example places, starts the reference server on a free
port of 127.0.0.1, replays the example track (a 2-hour run in Kent) through the
library in virtual time, and prints the triggers and a summary. Needs no network
beyond loopback. Each run starts from an empty data directory.

  --data-dir DIR   where the demo keeps its files (default ./bvgeo-data/demo; emptied first)
  --examples DIR   where kent-run-2014-05-10.gpx and kent-places.csv are
  --json           triggers and summary as JSON lines
  --verbose        echo the library's log lines on standard error
  --console        afterwards, serve the debug console for the demo's device until Ctrl-C
  --port N         the console's port (default 0: a free one)

example:
  bvgeo demo
)";

namespace {

std::filesystem::path examplesDirectory(const Args& args) {
    if (auto given = args.value("examples")) return *given;
    // The source tree of this build, then an installed copy, then the working directory.
    for (const char* candidate : {BVGEO_EXAMPLES_DIR, BVGEO_INSTALLED_EXAMPLES_DIR, "examples/data"})
        if (std::filesystem::exists(std::filesystem::path(candidate) / "kent-places.csv")) return candidate;
    return BVGEO_EXAMPLES_DIR;
}

} // namespace

int runDemoCommand(const std::vector<std::string>& words, std::ostream& out) {
    Args args(words, {{"data-dir"}, {"examples"}, {"json", false}, {"verbose", false},
                      {"console", false}, {"port"}, {"help", false}});
    if (!args.positionals().empty()) throw UsageError("demo takes no arguments");
    if (args.has("port") && !args.has("console")) throw UsageError("--port is the console's: give --console too");
    // The console that follows waits for Ctrl-C on a thread of its own; every thread
    // of the demo, the reference server's among them, must leave the signal to it.
    if (args.has("console")) blockStopSignals();
    const auto examples = examplesDirectory(args);
    const auto track = examples / "kent-run-2014-05-10.gpx";
    const auto places = examples / "kent-places.csv";
    for (const auto& file : {track, places})
        if (!std::filesystem::is_regular_file(file))
            throw UsageError("example file " + file.string() + " not found (--examples DIR)");

    // A fixed directory emptied on each run: the demo shows the same story every time
    // instead of continuing the stays of the last run.
    const std::filesystem::path dataDir = args.value("data-dir", "./bvgeo-data/demo");
    std::error_code error;
    std::filesystem::remove_all(dataDir, error);
    std::filesystem::create_directories(dataDir / "server", error);
    if (error) {
        std::cerr << "bvgeo demo: cannot create " << dataDir.string() << ": " << error.message() << '\n';
        return 1;
    }

    const std::string appId = "demo";
    const ZoneBuildResult zones =
        buildZones(places.string(), (dataDir / "server" / appId / "zones").string(), ZoneBuildOptions{});
    if (!zones.ok) {
        std::cerr << "bvgeo demo: " << zones.error << '\n';
        return 1;
    }

    ReferenceServerOptions serverOptions;
    serverOptions.rootDirectory = (dataDir / "server").string();
    serverOptions.triggerDatabasePath = (dataDir / "server" / "triggers.sqlite").string();
    ReferenceHttpServer server(serverOptions);
    if (!server.start(0)) {
        std::cerr << "bvgeo demo: " << server.error() << '\n';
        return 1;
    }
    std::cerr << "demo: " << zones.fences << " places in " << zones.cells << " zone files, served at "
              << server.assetsBaseUrl() << "; replaying " << track.string() << '\n';

    ReplayOptions replay;
    replay.track = track.string();
    replay.appId = appId;
    replay.environment = 3;
    replay.apiBase = server.apiBaseUrl();
    replay.assetsBase = server.assetsBaseUrl();
    replay.dataDir = (dataDir / "device").string();
    replay.json = args.has("json");
    replay.verbose = args.has("verbose");
    const int status = runReplay(replay, out);
    if (status == 0 && args.has("console")) {
        DebugConsoleOptions console;
        if (auto port = args.integer("port")) console.port = static_cast<int>(*port);
        // The reference server stays up, so tracking restarted from the console
        // reaches it as the replay did.
        return serveConsole(replay, console, out);
    }
    server.stop();
    return status;
}

} // namespace bvgeo::cli
