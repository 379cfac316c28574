// ReferenceServer: the zone and trigger service the library talks to, as a plain
// request -> response function with no HTTP framework under it, so every answer
// can be tested without a socket. It owns the trigger store and the random source
// that decides injected failures. handle() runs on whatever thread calls it (the
// HTTP binding calls it from several workers at once); everything it shares is
// behind a lock. Zone files are read from disk on each request, so files may be
// replaced while it runs. A caller must keep the object alive while any handle()
// call is in progress.
//
// Routes:
//   GET  /<appId>/zones/<file>        the file under the root, as a static object
//                                     store serves it (Last-Modified, 304, 403)
//   POST /api/v1/app/<appId>/trigger  validate and store one trigger, once per
//                                     Idempotency-Key (a repeat answers
//                                     {"ok":true,"duplicate":true} and is counted)
//   GET  /api/v1/app/<appId>/triggers every stored trigger of the app
// The injected failure rate applies to the first two only: those are the requests
// the library makes and retries, while the listing is how a person or a test
// checks what arrived.
#pragma once

#include "server/HttpExchange.hpp"
#include "server/TriggerStore.hpp"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bvgeo {

struct ReferenceServerOptions {
    std::string rootDirectory;       // holds <appId>/zones/<file>
    std::string triggerDatabasePath; // created if missing
    double failRate = 0.0;           // share of library requests answered 503; clamped to [0, 1]
    int delayMilliseconds = 0;       // applied by the HTTP binding before each answer
    // Uniform in [0, 1). Empty: a generator seeded from std::random_device. Calls
    // are serialised, so a plain stateful generator is fine.
    std::function<double()> random;
    // Seconds since 1970 for a trigger's receivedAt. Empty: the system clock.
    // Calls are serialised too.
    std::function<std::int64_t()> now;
};

class ReferenceServer {
public:
    explicit ReferenceServer(ReferenceServerOptions options);

    ReferenceServer(const ReferenceServer&) = delete;
    ReferenceServer& operator=(const ReferenceServer&) = delete;

    // False when the trigger store could not be opened; error() says why. Zone
    // requests are still served then; trigger requests answer 500.
    bool ready() const { return ready_; }
    const std::string& error() const { return error_; }
    const ReferenceServerOptions& options() const { return options_; }

    ServerResponse handle(const ServerRequest& request);

    // The text of a Last-Modified header for `secondsSince1970`
    // ("Sun, 06 Nov 1994 08:49:37 GMT").
    static std::string httpDate(std::int64_t secondsSince1970);
    // Reads that form back; nothing for any other text.
    static std::optional<std::int64_t> parseHttpDate(std::string_view text);

private:
    ServerResponse serveZoneFile(const ServerRequest& request);
    ServerResponse storeTrigger(const std::string& appId, const ServerRequest& request);
    ServerResponse listTriggers(const std::string& appId);
    bool drawFailure();
    std::int64_t currentTime();

    ReferenceServerOptions options_;
    TriggerStore store_;
    bool ready_ = false;
    std::string error_;

    std::mutex sourcesMutex_; // guards options_.random and options_.now
};

} // namespace bvgeo
