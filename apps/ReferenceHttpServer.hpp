// ReferenceHttpServer: puts a ReferenceServer on 127.0.0.1 with cpp-httplib. It
// owns the handler, the listening socket and the thread that accepts on it;
// cpp-httplib's worker pool calls the handler, sleeping first for the configured
// delay (a stop() cuts such a sleep short). Start and stop from one controlling
// thread; port() and the URLs may be read from any thread while it runs. The
// request log callback is called from the workers, one call at a time, after each
// answer. The destructor stops the server, so an instance may simply go out of
// scope, and start() may be called again after stop().
#pragma once

#include "server/ReferenceServer.hpp"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace bvgeo {

class ReferenceHttpServer {
public:
    // One line per request: "GET /demo/zones/zone_1_2.json 304".
    using RequestLog = std::function<void(const std::string& line)>;

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

    bool running() const { return port_.load() > 0; }
    int port() const { return port_.load(); } // 0 when not running
    std::string apiBaseUrl() const;           // http://127.0.0.1:<port>/api/v1/app/
    std::string assetsBaseUrl() const;        // http://127.0.0.1:<port>/
    const std::string& error() const { return error_; }
    // Requests a worker has taken up and not yet answered, the delay included.
    int requestsInProgress() const { return inProgress_.load(); }

    ReferenceServer& handler() { return handler_; }

private:
    // Waits out the configured delay unless stop() comes first; false if it did.
    bool waitDelay();

    ReferenceServer handler_;
    RequestLog log_;
    std::mutex logMutex_;

    std::unique_ptr<httplib::Server> http_;
    std::thread thread_;
    std::atomic<bool> listenReturned_{false};
    std::atomic<int> port_{0};
    std::atomic<int> inProgress_{0};
    std::string error_;

    std::mutex stopMutex_;
    std::condition_variable stopChanged_;
    bool stopping_ = false;
};

} // namespace bvgeo
