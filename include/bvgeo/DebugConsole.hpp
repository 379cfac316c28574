// DebugConsole: the library's debug screens as two web pages on 127.0.0.1. The map
// page shows the device's newest position, the square of its zone cell and every
// fence of the current zone; the log page shows the stored log newest first,
// filtered by category, and offers "Restart" (archive the database and start
// again) and "Send to Email" (the database files and a device report).
//
// A host configures the tracker, then starts a console; a tester opens url() in a
// browser on the same machine (or through a port forward). It owns a small HTTP
// server whose worker threads read the database directly; the two actions that
// change something run on the main queue, like every other call the library makes
// into the host, so the host's main queue must be running for them to complete.
// Only pages that came from the console itself can trigger them: requests must
// name the console's own address as Host, and actions must carry the token of this
// run, which only the console's pages know. start(), stop() and the destructor may
// be called from any thread; the rest may be read from any thread.
#pragma once

#include <bvgeo/Export.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

// Where "Send to Email" sends the report.
struct BVGEO_API DebugMailServer {
    std::string url;             // "smtp://host:25", "smtp://host:587" (STARTTLS when offered) or "smtps://host:465"
    std::string from;            // sender address
    std::vector<std::string> to; // at least one recipient
    std::string username;        // empty: no login
    std::string password;
};

struct BVGEO_API DebugConsoleOptions {
    int port = 0;                // 0: a free port, see port()
    std::string tileUrlTemplate; // e.g. "https://tile.example.org/{z}/{x}/{y}.png"; empty: offline outlines
    std::optional<DebugMailServer> mailServer; // none: the page offers the report as an .eml file
    double actionTimeoutSeconds = 30.0;        // how long an action waits for the main queue
};

class BVGEO_API DebugConsole {
public:
    explicit DebugConsole(DebugConsoleOptions options = {});
    ~DebugConsole();
    DebugConsole(const DebugConsole&) = delete;
    DebugConsole& operator=(const DebugConsole&) = delete;

    // Listens on 127.0.0.1. False, with the reason in error(), when the port cannot
    // be bound or the console already runs. Each start makes a new token.
    bool start();
    // Stops serving; an action still waiting for the main queue is answered 503.
    void stop();

    bool running() const;
    int port() const;        // 0 when not running
    std::string url() const; // "http://127.0.0.1:<port>/", empty when not running
    std::string error() const;
    std::string token() const; // the action token of the current run

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace bvgeo
