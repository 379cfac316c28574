// `bvgeo track --gpsd [HOST:PORT]`: the library on the real clock and a real main
// loop, with live positions from gpsd, until Ctrl-C or SIGTERM.
#include "CliConsole.hpp"
#include "Commands.hpp"
#include "HostSetup.hpp"
#include "Replay.hpp"
#include "SignalLoop.hpp"

#include "datastore/BV1Database.hpp"
#include "platform/linux/GpsdLocationService.hpp"
#include "request/HTTPClient.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <ctime>
#include <iostream>

namespace bvgeo::cli {

const char* const kTrackHelp = R"(usage: bvgeo track --gpsd [HOST:PORT] [options]

Runs the library on live positions from a running gpsd (default localhost:2947)
until Ctrl-C, printing each trigger as the host receives it. Takes the server and
tuning options of bvgeo replay: --app-id, --env, --api-base, --assets-base, --mode,
--data-dir, --accuracy, --distance-filter, --cache-expiration, --zone-interval,
--linger-time, --max-linger-time, --retry-interval, --durable-delivery,
--max-log-rows, --max-location-rows, --fence-listing-limit, --json, --verbose,
--zone-cache, --prefetch-distance, --preload,
--robust-triggers and its tunables (--exit-buffer, --accuracy-cap, --max-accuracy,
--assumed-accuracy, --hdop-metres, --max-speed, --confirm-fixes, --confirm-seconds,
--minimum-dwell, --use-2d-fixes), --polygon-fences.

example:
  bvgeo track --gpsd localhost:2947 --api-base http://127.0.0.1:8080/api/v1/app/ \
      --assets-base http://127.0.0.1:8080/
)";

namespace {

class TriggerPrinter final : public BVGeoTrackerDelegate {
public:
    TriggerPrinter(std::ostream& out, bool json) : out_(out), json_(json) {}
    void BVGeoTrackerOnFenceTriggered(BVGeoTracker&, std::shared_ptr<BVTrigger> trigger) override {
        out_ << (json_ ? triggerJsonLine(*trigger) : triggerTextLine(*trigger)) << std::endl;
    }

private:
    std::ostream& out_;
    bool json_;
};

std::pair<std::string, std::string> hostAndPort(const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos) return {text, "2947"};
    if (colon == 0 || colon + 1 == text.size()) throw UsageError("--gpsd: expected HOST:PORT, got '" + text + "'");
    return {text.substr(0, colon), text.substr(colon + 1)};
}

} // namespace

int runTrackCommand(const std::vector<std::string>& words, std::ostream& out) {
    auto decls = hostOptionDecls();
    decls.push_back({"gpsd", false});
    Args args(words, decls);
    if (!args.has("gpsd")) throw UsageError("track needs a position source: --gpsd [HOST:PORT]");
    if (args.positionals().size() > 1) throw UsageError("track takes at most one HOST:PORT");
    const auto [host, port] = hostAndPort(args.positionals().empty() ? "localhost:2947" : args.positionals()[0]);
    ReplayOptions options;
    applyHostOptions(args, options);

    const sigset_t stopSignals = blockStopSignals();

    if (auto problem = prepareDataDirectory(options.dataDir)) {
        std::cerr << "bvgeo: " << *problem << '\n';
        return 1;
    }
    auto console = std::make_shared<CliConsole>(options.verbose, options.json || options.verbose);
    auto gpsd = std::make_shared<GpsdLocationService>(host, port, [console](const std::string& line) {
        console->note(line);
    });
    LinuxPlatformOptions platformOptions;
    platformOptions.documentsDirectory = options.dataDir;
    platformOptions.applicationName = "bvgeo";
    platformOptions.locationService = gpsd;
    auto mainLoop = installRunLoopPlatform(platformOptions, console);
    if (!mainLoop) return 1;

    if (auto problem = startHost(options, std::make_shared<TriggerPrinter>(out, options.json))) {
        std::cerr << "bvgeo: " << *problem << '\n';
        return 1;
    }
    gpsd->start();
    console->note("tracking from gpsd at " + host + ":" + port + "; Ctrl-C stops");

    runUntilStopSignal(*mainLoop, stopSignals, [] { BVGeoTracker::sharedInstance().stop(); });

    gpsd->stop();
    HTTPClient::sharedInstance().waitUntilIdle(10.0);
    const std::string database = BV1Database().path();
    BV1Database::closeAll();
    console->note("stopped after " + std::to_string(gpsd->fixesDelivered()) + " fixes; database " + database);
    return 0;
}

} // namespace bvgeo::cli
