// LoopbackHttpServer: puts a request -> response function on 127.0.0.1 with
// cpp-httplib. It owns the listening socket and the thread that accepts on it;
// cpp-httplib's worker pool calls the handler, several workers at once, so the
// handler must be thread-safe. Start and stop from one controlling thread; port()
// may be read from any thread while it runs. The request log is called from the
// workers, one call at a time, after each answer. The destructor stops the server,
// and start() may be called again after stop().
#pragma once

#include "server/HttpExchange.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace bvgeo {

class LoopbackHttpServer {
public:
    using Handler = std::function<ServerResponse(const ServerRequest&)>;
    // One line per request: "GET /demo/zones/zone_1_2.json 304".
    using RequestLog = std::function<void(const std::string& line)>;

    static constexpr const char* kHost = "127.0.0.1";

    explicit LoopbackHttpServer(Handler handler, std::size_t maxBodyBytes = std::size_t{1} << 20);
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    // May be set or replaced at any time; calls and replacement are serialised.
    void setRequestLog(RequestLog log);
    // Runs at the start of stop(), before it waits for the workers: a handler that
    // waits for something cuts the wait short here. Set before start().
    void setStopHook(std::function<void()> hook) { stopHook_ = std::move(hook); }

    // Listens on 127.0.0.1:`port` (0: a free port the kernel picks). False, with the
    // reason in error(), when the port cannot be bound or it is already running.
    bool start(int port = 0);
    // Closes the socket and waits for the accepting thread and every worker to
    // finish. Harmless when not running.
    void stop();

    bool running() const { return port_.load() > 0; }
    int port() const { return port_.load(); } // 0 when not running
    std::string baseUrl() const;              // http://127.0.0.1:<port>/
    const std::string& error() const { return error_; }
    // Requests a worker has taken up and not yet answered.
    int requestsInProgress() const { return inProgress_.load(); }

private:
    Handler handler_;
    std::size_t maxBodyBytes_;
    std::function<void()> stopHook_;
    RequestLog log_;
    std::mutex logMutex_;
    std::unique_ptr<httplib::Server> http_;
    std::thread thread_;
    std::atomic<bool> listenReturned_{false};
    std::atomic<int> port_{0};
    std::atomic<int> inProgress_{0};
    std::string error_;
};

} // namespace bvgeo
