// ConsoleHost: the debug console served for one data directory on the real clock,
// with the library's main queue run on the calling thread until Ctrl-C or SIGTERM.
// Used by `bvgeo console` and `bvgeo demo --console`.
#pragma once

#include "Replay.hpp"

#include <bvgeo/DebugConsole.hpp>

#include <iosfwd>

namespace bvgeo::cli {

// Configures the library from `host` (tracking is not started: the console's
// Restart starts it), starts the console and prints "Debug console at <url>" on
// `out`. Installs its own platform, so it runs once per process, after any replay.
// 0 after a stop by signal; 1 when the directory, configuration or port is unusable.
int serveConsole(const ReplayOptions& host, const DebugConsoleOptions& console, std::ostream& out);

} // namespace bvgeo::cli
