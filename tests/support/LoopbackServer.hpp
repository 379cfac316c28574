// LoopbackServer: a real HTTP server on 127.0.0.1, on a port the kernel picks, that
// records every request it sees (method, path, headers, body, client port) and
// answers through a handler the test sets. Its own threads serve the requests; the
// recording and the handler swap are thread-safe.
//
// holdAnswers() makes handlers wait (bounded) until releaseAnswers(), so a test can
// keep a request "on the wire" for as long as it likes without sleeping. Requests
// are recorded before they are held.
#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace bvgeo::testing {

struct SeenRequest {
    std::string method;
    std::string path;
    std::string target; // path with the query
    httplib::Headers headers;
    std::string body;
    int remotePort = -1;

    std::optional<std::string> header(const std::string& name) const {
        auto found = headers.find(name);
        if (found == headers.end()) return std::nullopt;
        return found->second;
    }
};

class LoopbackServer {
public:
    using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

    // Answers 200 with "{}" until told otherwise.
    LoopbackServer() : LoopbackServer(json(200, "{}")) {}

    explicit LoopbackServer(Handler handler) : handler_(std::move(handler)) {
        auto dispatch = [this](const httplib::Request& request, httplib::Response& response) {
            serve(request, response);
        };
        const std::string any = ".*";
        server_.Get(any, dispatch);
        server_.Post(any, dispatch);
        server_.Put(any, dispatch);
        server_.Delete(any, dispatch);
        server_.Patch(any, dispatch);
        // Enough for a client that keeps several connections busy at once; idle
        // connections go after a second so shutdown is never long.
        server_.set_keep_alive_max_count(100000);
        server_.set_keep_alive_timeout(1);
        // Answers go out as header and body writes; without this, Nagle holds the body
        // back for the client's delayed ACK (40 ms a request).
        server_.set_tcp_nodelay(true);
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        // stop() only works on a running server: wait for the loop to start, up to a deadline.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!server_.is_running() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    }

    ~LoopbackServer() {
        releaseAnswers();
        server_.stop();
        if (thread_.joinable()) thread_.join();
    }

    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // A handler answering `status` with `body` as JSON.
    static Handler json(int status, std::string body) {
        return [status, body](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            response.set_content(body, "application/json");
        };
    }

    int port() const { return port_; }
    std::string url(const std::string& path = "/") const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

    void setHandler(Handler handler) {
        std::lock_guard lock(mutex_);
        handler_ = std::move(handler);
    }

    std::vector<SeenRequest> requests() const {
        std::lock_guard lock(mutex_);
        return seen_;
    }
    std::size_t requestCount() const {
        std::lock_guard lock(mutex_);
        return seen_.size();
    }
    std::vector<std::string> paths() const {
        std::vector<std::string> out;
        for (const auto& request : requests()) out.push_back(request.path);
        return out;
    }

    // True once at least `count` requests arrived; false after `timeoutSeconds`.
    bool waitForRequests(std::size_t count, double timeoutSeconds) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                                 [&] { return seen_.size() >= count; });
    }

    void holdAnswers() {
        std::lock_guard lock(mutex_);
        held_ = true;
    }
    void releaseAnswers() {
        {
            std::lock_guard lock(mutex_);
            held_ = false;
        }
        changed_.notify_all();
    }

private:
    void serve(const httplib::Request& request, httplib::Response& response) {
        Handler handler;
        {
            std::unique_lock lock(mutex_);
            seen_.push_back(SeenRequest{request.method, request.path, request.target, request.headers, request.body,
                                        request.remote_port});
            changed_.notify_all();
            changed_.wait_for(lock, std::chrono::seconds(20), [&] { return !held_; });
            handler = handler_;
        }
        handler(request, response);
    }

    httplib::Server server_;
    std::thread thread_;
    int port_ = -1;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<SeenRequest> seen_;
    Handler handler_;
    bool held_ = false;
};

} // namespace bvgeo::testing
