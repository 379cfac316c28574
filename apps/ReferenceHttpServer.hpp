// ReferenceHttpServer: a ReferenceServer on 127.0.0.1. It owns the handler and the
// loopback server that calls it from its workers, sleeping first for the configured
// delay (a stop() cuts such a sleep short). Start and stop from one controlling
// thread; port() and the URLs may be read from any thread while it runs. The
// destructor stops the server, so an instance may simply go out of scope, and
// start() may be called again after stop().
#pragma once

#include "server/LoopbackHttpServer.hpp"
#include "server/ReferenceServer.hpp"

#include <condition_variable>
#include <mutex>
#include <string>

namespace bvgeo {

class ReferenceHttpServer {
public:
    using RequestLog = LoopbackHttpServer::RequestLog;

    explicit ReferenceHttpServer(ReferenceServerOptions options);
    ~ReferenceHttpServer();

    ReferenceHttpServer(const ReferenceHttpServer&) = delete;
    ReferenceHttpServer& operator=(const ReferenceHttpServer&) = delete;

    // May be set or replaced at any time; calls and replacement are serialised.
    void setRequestLog(RequestLog log);

    // Listens on 127.0.0.1:`port` (0: a free port the kernel picks). False, with
    // the reason in error(), when the trigger store is unusable or the port cannot
    // be bound; false too if it is already running.
    bool start(int port = 0);
    // Closes the socket and waits for the accepting thread and every worker to
    // finish. Harmless when not running.
    void stop();

    bool running() const { return http_.running(); }
    int port() const { return http_.port(); } // 0 when not running
    std::string apiBaseUrl() const;           // http://127.0.0.1:<port>/api/v1/app/
    std::string assetsBaseUrl() const;        // http://127.0.0.1:<port>/
    const std::string& error() const { return error_; }
    // Requests a worker has taken up and not yet answered, the delay included.
    int requestsInProgress() const { return http_.requestsInProgress(); }

    ReferenceServer& handler() { return handler_; }

private:
    // Waits out the configured delay unless stop() comes first; false if it did.
    bool waitDelay();

    ReferenceServer handler_;
    std::string error_;
    std::mutex stopMutex_;
    std::condition_variable stopChanged_;
    bool stopping_ = false;
    LoopbackHttpServer http_; // last: its workers use the members above until it stops
};

} // namespace bvgeo
