#include "Cli.hpp"

#include "Args.hpp"
#include "Commands.hpp"
#include "Records.hpp"
#include "Replay.hpp"

#include <bvgeo/ConfigOptions.hpp>

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace bvgeo::cli {

namespace {

const char* const kUsage = R"(usage: bvgeo <command> [options]

commands:
  demo                      build the example zones, serve them on loopback, replay the example track
  replay TRACK              play a GPX, NMEA or CSV track through the library in virtual time
  track --gpsd [HOST:PORT]  live tracking from a running gpsd
  serve --root DIR          the reference zone and trigger server on 127.0.0.1
  zones build INPUT --out DIR --app-id ID   turn fences into zone files
  logs | triggers | locations [--data-dir DIR]   read a data directory's database back
  console [--data-dir DIR]  the debug console (map and log pages) on 127.0.0.1

Every command answers --help. bvgeo --version prints the library version.
)";

bool wantsHelp(const std::vector<std::string>& words) {
    for (const auto& word : words) {
        if (word == "--") return false;
        if (word == "--help" || word == "-h") return true;
    }
    return false;
}

int dispatch(const std::string& command, const std::vector<std::string>& words) {
    auto help = [&](const char* text) {
        std::cout << text;
        return 0;
    };
    if (command == "replay") return wantsHelp(words) ? help(kReplayHelp) : runReplayCommand(words, std::cout);
    if (command == "demo") return wantsHelp(words) ? help(kDemoHelp) : runDemoCommand(words, std::cout);
    if (command == "serve") return wantsHelp(words) ? help(kServeHelp) : runServeCommand(words, std::cout);
    if (command == "zones") return wantsHelp(words) ? help(kZonesHelp) : runZonesCommand(words, std::cout);
    if (command == "track") return wantsHelp(words) ? help(kTrackHelp) : runTrackCommand(words, std::cout);
    if (command == "console") return wantsHelp(words) ? help(kConsoleHelp) : runConsoleCommand(words, std::cout);
    if (command == "logs" || command == "triggers" || command == "locations")
        return wantsHelp(words) ? help(kRecordsHelp) : runRecords(command, words, std::cout);
    throw UsageError("unknown command '" + command + "' (bvgeo --help lists them)");
}

} // namespace

int runReplayCommand(const std::vector<std::string>& words, std::ostream& out) {
    return runReplay(parseReplayOptions(words), out);
}

int run(int argc, char** argv) {
    std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        (words.empty() ? std::cerr : std::cout) << kUsage;
        return words.empty() ? 2 : 0;
    }
    if (words[0] == "--version") {
        std::cout << SDK_VERSION << '\n';
        return 0;
    }
    const std::string command = words[0];
    words.erase(words.begin());
    try {
        return dispatch(command, words);
    } catch (const UsageError& error) {
        std::cerr << "bvgeo " << command << ": " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "bvgeo " << command << ": " << error.what() << '\n';
        return 1;
    }
}

} // namespace bvgeo::cli
