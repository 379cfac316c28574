// `bvgeo serve`: the reference zone and trigger server on 127.0.0.1 until Ctrl-C.
#include "Commands.hpp"
#include "ReferenceHttpServer.hpp"

#include "Args.hpp"

#include <csignal>
#include <filesystem>
#include <iostream>
#include <pthread.h>

namespace bvgeo::cli {

const char* const kServeHelp = R"(usage: bvgeo serve --root DIR [--port N] [--db FILE] [--fail-rate P] [--delay MS] [--quiet]

The reference server for development and tests, on 127.0.0.1:
  GET  /<appId>/zones/<file>          zone files from DIR/<appId>/zones/ (Last-Modified, 304, 403)
  POST /api/v1/app/<appId>/trigger    checks and stores a trigger report
  GET  /api/v1/app/<appId>/triggers   lists the stored reports

  --root DIR       where the zone files are (as bvgeo zones build --out writes them)
  --port N         port to listen on (default 8080; 0 picks a free one)
  --db FILE        SQLite file for the trigger reports (default DIR/triggers.sqlite)
  --fail-rate P    answer this share of zone and trigger requests with 503 (0 to 1)
  --delay MS       wait this long before each answer
  --quiet          do not print a line per request

example:
  bvgeo zones build examples/data/kent-places.csv --out zones --app-id demo
  bvgeo serve --root zones --port 8080
)";

int runServeCommand(const std::vector<std::string>& words, std::ostream& out) {
    Args args(words, {{"root"}, {"port"}, {"db"}, {"fail-rate"}, {"delay"}, {"quiet", false}, {"help", false}});
    if (!args.positionals().empty()) throw UsageError("unexpected argument '" + args.positionals()[0] + "'");
    const auto root = args.value("root");
    if (!root) throw UsageError("serve needs --root DIR");
    if (!std::filesystem::is_directory(*root)) throw UsageError("--root: " + *root + " is not a directory");
    const auto port = args.integer("port").value_or(8080);
    if (port < 0 || port > 65535) throw UsageError("--port: " + std::to_string(port) + " is not a port number");
    ReferenceServerOptions options;
    options.rootDirectory = *root;
    options.triggerDatabasePath = args.value("db", (std::filesystem::path(*root) / "triggers.sqlite").string());
    options.failRate = args.number("fail-rate").value_or(0.0);
    if (options.failRate < 0 || options.failRate > 1) throw UsageError("--fail-rate must be between 0 and 1");
    const auto delay = args.integer("delay").value_or(0);
    if (delay < 0 || delay > 600'000) throw UsageError("--delay must be between 0 and 600000 milliseconds");
    options.delayMilliseconds = static_cast<int>(delay);

    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    ReferenceHttpServer server(options);
    if (!args.has("quiet")) server.setRequestLog([](const std::string& line) { std::cerr << line << std::endl; });
    if (!server.start(static_cast<int>(port))) {
        std::cerr << "bvgeo serve: " << server.error() << '\n';
        return 1;
    }
    out << "zone files:  " << server.assetsBaseUrl() << "<appId>/zones/<file>  (--assets-base "
        << server.assetsBaseUrl() << ")\n"
        << "trigger API: " << server.apiBaseUrl() << "<appId>/trigger  (--api-base " << server.apiBaseUrl() << ")\n"
        << "triggers in: " << options.triggerDatabasePath << "\nCtrl-C stops." << std::endl;
    int signal = 0;
    sigwait(&stopSignals, &signal);
    server.stop();
    return 0;
}

} // namespace bvgeo::cli
