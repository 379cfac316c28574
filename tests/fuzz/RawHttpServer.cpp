#include "RawHttpServer.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace bvgeo::fuzz {

namespace {

// A request header block larger than this is not one this library sends.
constexpr std::size_t kMaxRequestBytes = 4u * 1024u * 1024u;
// Neither side of a loopback exchange needs long; a stuck client is let go.
constexpr int kIdleMs = 10'000;

bool readSome(int fd, std::string& into) {
    pollfd ready{fd, POLLIN, 0};
    if (::poll(&ready, 1, kIdleMs) <= 0) return false;
    char buffer[65536];
    const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
    if (got <= 0) return false;
    into.append(buffer, static_cast<std::size_t>(got));
    return true;
}

std::size_t contentLength(const std::string& head) {
    std::string lower(head);
    for (auto& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const auto at = lower.find("\r\ncontent-length:");
    if (at == std::string::npos) return 0;
    return static_cast<std::size_t>(std::strtoull(lower.c_str() + at + 17, nullptr, 10));
}

} // namespace

RawHttpServer::RawHttpServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_, 16) != 0 || ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::pipe2(wake_, O_CLOEXEC) != 0)
        throw std::runtime_error("RawHttpServer: cannot listen on 127.0.0.1");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

RawHttpServer::~RawHttpServer() {
    (void)::write(wake_[1], "x", 1);
    thread_.join();
    ::close(listener_);
    ::close(wake_[0]);
    ::close(wake_[1]);
}

std::string RawHttpServer::baseUrl() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

void RawHttpServer::setAnswer(std::string bytes) {
    std::lock_guard lock(mutex_);
    answer_ = std::move(bytes);
}

void RawHttpServer::serve() {
    for (;;) {
        pollfd ready[2] = {{listener_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(ready, 2, -1) < 0) continue;
        if (ready[1].revents) return;
        const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        answer(client);
        ::close(client);
    }
}

void RawHttpServer::answer(int client) {
    // The whole request first: closing with unread bytes would reset the connection
    // and could take the answer with it.
    std::string request;
    std::size_t end;
    while ((end = request.find("\r\n\r\n")) == std::string::npos)
        if (request.size() > kMaxRequestBytes || !readSome(client, request)) return;
    const std::size_t total = end + 4 + contentLength(request.substr(0, end + 2));
    while (request.size() < total)
        if (!readSome(client, request)) return;

    std::string bytes;
    {
        std::lock_guard lock(mutex_);
        bytes = answer_;
    }
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(client, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return;
        sent += static_cast<std::size_t>(n);
    }
    ::shutdown(client, SHUT_WR);
}

} // namespace bvgeo::fuzz
