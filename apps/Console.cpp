// `bvgeo console`: the debug console for a data directory, and the serving loop
// that `bvgeo demo --console` shares.
#include "CliConsole.hpp"
#include "Commands.hpp"
#include "ConsoleHost.hpp"
#include "HostSetup.hpp"
#include "SignalLoop.hpp"

#include "datastore/BV1Database.hpp"
#include "request/HTTPClient.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <iostream>

namespace bvgeo::cli {

const char* const kConsoleHelp = R"(usage: bvgeo console [--data-dir DIR] [--port N] [options]

Serves the debug console for the library's data directory on 127.0.0.1 until
Ctrl-C: a map page (the newest position, its zone square, the current zone's
fences) and a log page (newest first, filters, Restart, Send to Email). Open the
printed address in a browser on this machine. Tracking starts only when the log
page's Restart asks for it (with the server and tuning options below).

  --data-dir DIR        documents directory the library wrote to (default ./bvgeo-data)
  --port N              port to listen on (default 0: a free one)
  --zone-interval DEG   cell side of the zone square (default 0.2); also tunes restarted tracking
  --tile-url TEMPLATE   map tiles such as https://tile.example.org/{z}/{x}/{y}.png instead of
                        the built-in country outlines
  --smtp URL            mail server for Send to Email: smtp://HOST:PORT or smtps://HOST:PORT;
                        without it the page offers the report as an .eml file
  --mail-from ADDR  --mail-to ADDR[,ADDR...]  --smtp-user NAME  --smtp-password TEXT
  --app-id, --env, --api-base, --assets-base, --mode and the tuning options of bvgeo replay
                        configure the library for restarted tracking
  --verbose             echo the library's log lines on standard error

example:
  bvgeo console --data-dir bvgeo-data/demo/device
)";

namespace {

std::vector<std::string> splitAddresses(const std::string& text) {
    std::vector<std::string> addresses;
    std::size_t start = 0;
    while (start <= text.size()) {
        auto comma = text.find(',', start);
        if (comma == std::string::npos) comma = text.size();
        if (comma > start) addresses.push_back(text.substr(start, comma - start));
        start = comma + 1;
    }
    return addresses;
}

} // namespace

int serveConsole(const ReplayOptions& host, const DebugConsoleOptions& consoleOptions, std::ostream& out) {
    const sigset_t stopSignals = blockStopSignals();

    if (auto problem = prepareDataDirectory(host.dataDir)) {
        std::cerr << "bvgeo: " << *problem << '\n';
        return 1;
    }
    // The report lines ("Can not send email.", the mailed body) are this program's
    // output; the library's log echo goes to standard error on request.
    auto console = std::make_shared<CliConsole>(host.verbose, host.verbose, true);
    LinuxPlatformOptions platformOptions;
    platformOptions.documentsDirectory = host.dataDir;
    platformOptions.applicationName = "bvgeo";
    platformOptions.shortVersion = std::string(SDK_VERSION);
    auto mainLoop = installRunLoopPlatform(platformOptions, console);
    if (!mainLoop) return 1;
    if (auto problem = configureHost(host, nullptr)) {
        std::cerr << "bvgeo: " << *problem << '\n';
        return 1;
    }

    DebugConsole debugConsole(consoleOptions);
    if (!debugConsole.start()) {
        std::cerr << "bvgeo: " << debugConsole.error() << '\n';
        return 1;
    }
    out << "Debug console at " << debugConsole.url() << std::endl;
    console->note("serving " + host.dataDir + "; Ctrl-C stops");

    runUntilStopSignal(*mainLoop, stopSignals, [] { BVGeoTracker::sharedInstance().stop(); });

    debugConsole.stop();
    HTTPClient::sharedInstance().waitUntilIdle(10.0);
    BV1Database::closeAll();
    return 0;
}

int runConsoleCommand(const std::vector<std::string>& words, std::ostream& out) {
    auto decls = hostOptionDecls();
    for (const char* name : {"port", "tile-url", "smtp", "mail-from", "mail-to", "smtp-user", "smtp-password"})
        decls.push_back({name});
    Args args(words, decls);
    if (!args.positionals().empty()) throw UsageError("console takes no arguments");
    ReplayOptions host;
    applyHostOptions(args, host);

    DebugConsoleOptions options;
    if (auto port = args.integer("port")) {
        if (*port < 0 || *port > 65535) throw UsageError("--port must be between 0 and 65535");
        options.port = static_cast<int>(*port);
    }
    options.tileUrlTemplate = args.value("tile-url", "");
    if (auto smtp = args.value("smtp")) {
        DebugMailServer mail;
        mail.url = *smtp;
        mail.from = args.value("mail-from", "");
        mail.to = splitAddresses(args.value("mail-to", ""));
        if (mail.from.empty() || mail.to.empty()) throw UsageError("--smtp needs --mail-from and --mail-to");
        mail.username = args.value("smtp-user", "");
        mail.password = args.value("smtp-password", "");
        options.mailServer = mail;
    } else if (args.has("mail-from") || args.has("mail-to")) {
        throw UsageError("--mail-from and --mail-to need --smtp");
    }
    return serveConsole(host, options, out);
}

} // namespace bvgeo::cli
