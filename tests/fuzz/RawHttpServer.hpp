// RawHttpServer: a server on 127.0.0.1 that reads each request whole (header block
// and Content-Length body) and answers it with whatever bytes it was given, as they
// are, then closes the connection. It knows nothing of HTTP answers, so a target can
// hand the client any status line, header block and body, well formed or not. One
// connection at a time, on a thread of its own; setAnswer() from any thread.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace bvgeo::fuzz {

class RawHttpServer {
public:
    RawHttpServer();
    ~RawHttpServer();
    RawHttpServer(const RawHttpServer&) = delete;
    RawHttpServer& operator=(const RawHttpServer&) = delete;

    // "http://127.0.0.1:PORT/"
    std::string baseUrl() const;
    void setAnswer(std::string bytes);

private:
    void serve();
    void answer(int client);

    int listener_ = -1;
    int wake_[2] = {-1, -1};
    int port_ = 0;
    std::mutex mutex_;
    std::string answer_;
    std::thread thread_;
};

} // namespace bvgeo::fuzz
