#include "server/LoopbackHttpServer.hpp"

#include <httplib.h>
#include <sys/socket.h>

#include <chrono>

namespace bvgeo {

namespace {

// The accepting thread flags itself running within microseconds; this only keeps a
// wedged start from hanging its caller.
constexpr auto kStartTimeout = std::chrono::seconds(5);

ServerRequest toServerRequest(const httplib::Request& request) {
    ServerRequest out;
    out.method = request.method;
    out.path = request.path;
    auto question = request.target.find('?');
    if (question != std::string::npos) out.query = request.target.substr(question + 1);
    out.headers.assign(request.headers.begin(), request.headers.end());
    out.body = request.body;
    return out;
}

void fillResponse(const ServerResponse& answer, httplib::Response& response) {
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) response.set_header(name, value);
    if (!answer.contentType.empty())
        response.set_content(answer.body, answer.contentType);
    else
        response.body = answer.body;
}

} // namespace

LoopbackHttpServer::LoopbackHttpServer(Handler handler, std::size_t maxBodyBytes)
    : handler_(std::move(handler)), maxBodyBytes_(maxBodyBytes) {}

LoopbackHttpServer::~LoopbackHttpServer() { stop(); }

void LoopbackHttpServer::setRequestLog(RequestLog log) {
    std::lock_guard lock(logMutex_);
    log_ = std::move(log);
}

bool LoopbackHttpServer::start(int port) {
    if (thread_.joinable()) {
        error_ = "already running on port " + std::to_string(port_.load());
        return false;
    }
    error_.clear();
    auto http = std::make_unique<httplib::Server>();
    auto dispatch = [this](const httplib::Request& request, httplib::Response& response) {
        ++inProgress_;
        fillResponse(handler_(toServerRequest(request)), response);
        --inProgress_;
    };
    // Every method reaches the handler, so it alone decides what a route is.
    const std::string any = ".*";
    http->Get(any, dispatch);
    http->Post(any, dispatch);
    http->Put(any, dispatch);
    http->Delete(any, dispatch);
    http->Patch(any, dispatch);
    http->Options(any, dispatch);
    http->set_logger([this](const httplib::Request& request, const httplib::Response& response) {
        std::lock_guard lock(logMutex_);
        if (log_) log_(request.method + " " + request.target + " " + std::to_string(response.status));
    });
    // httplib's default adds SO_REUSEPORT, which lets a second server bind a port in
    // use and silently take half its connections. SO_REUSEADDR alone still allows a
    // restart on a port whose old connections linger in TIME_WAIT.
    http->set_socket_options([](socket_t socket) {
        int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    });
    http->set_payload_max_length(maxBodyBytes_);
    // Without it Nagle holds each answer's body back for the client's delayed ACK.
    http->set_tcp_nodelay(true);
    int bound = port == 0 ? http->bind_to_any_port(kHost) : (http->bind_to_port(kHost, port) ? port : -1);
    if (bound <= 0) {
        error_ = "cannot listen on " + std::string(kHost) + ":" + std::to_string(port);
        return false;
    }
    listenReturned_ = false;
    http_ = std::move(http);
    thread_ = std::thread([this, server = http_.get()] {
        server->listen_after_bind();
        listenReturned_ = true;
    });
    // httplib's stop() does nothing until the loop has flagged itself running, so a
    // stop() right after start() would otherwise leave the thread unjoinable.
    auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (!http_->is_running() && !listenReturned_ && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    if (!http_->is_running()) {
        error_ = "the server on " + std::string(kHost) + ":" + std::to_string(bound) + " did not start";
        // Either the loop already returned or it never began; in the latter case
        // keep asking until it sees the closed socket and ends.
        while (!listenReturned_) {
            http_->stop();
            std::this_thread::yield();
        }
        thread_.join();
        http_.reset();
        return false;
    }
    port_ = bound;
    return true;
}

void LoopbackHttpServer::stop() {
    if (!thread_.joinable()) return;
    if (stopHook_) stopHook_();
    http_->stop();
    // The loop drains its worker pool before it returns, so after the join no
    // worker is left inside the handler.
    thread_.join();
    http_.reset();
    port_ = 0;
}

std::string LoopbackHttpServer::baseUrl() const {
    return "http://" + std::string(kHost) + ":" + std::to_string(port_.load()) + "/";
}

} // namespace bvgeo
