#include "ReferenceHttpServer.hpp"

#include <chrono>

namespace bvgeo {

ReferenceHttpServer::ReferenceHttpServer(ReferenceServerOptions options)
    : handler_(std::move(options)), http_([this](const ServerRequest& request) {
          if (!waitDelay()) {
              ServerResponse unavailable;
              unavailable.status = 503;
              return unavailable;
          }
          return handler_.handle(request);
      }) {
    http_.setStopHook([this] {
        {
            std::lock_guard lock(stopMutex_);
            stopping_ = true;
        }
        stopChanged_.notify_all();
    });
}

ReferenceHttpServer::~ReferenceHttpServer() { stop(); }

void ReferenceHttpServer::setRequestLog(RequestLog log) { http_.setRequestLog(std::move(log)); }

bool ReferenceHttpServer::start(int port) {
    if (http_.running()) {
        error_ = "already running on port " + std::to_string(http_.port());
        return false;
    }
    if (!handler_.ready()) {
        error_ = handler_.error();
        return false;
    }
    {
        std::lock_guard lock(stopMutex_);
        stopping_ = false;
    }
    const bool started = http_.start(port);
    error_ = http_.error();
    return started;
}

void ReferenceHttpServer::stop() { http_.stop(); }

std::string ReferenceHttpServer::apiBaseUrl() const { return http_.baseUrl() + "api/v1/app/"; }

std::string ReferenceHttpServer::assetsBaseUrl() const { return http_.baseUrl(); }

bool ReferenceHttpServer::waitDelay() {
    int delay = handler_.options().delayMilliseconds;
    std::unique_lock lock(stopMutex_);
    if (delay > 0) stopChanged_.wait_for(lock, std::chrono::milliseconds(delay), [this] { return stopping_; });
    return !stopping_;
}

} // namespace bvgeo
