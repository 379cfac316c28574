// FaultyServer: one loopback endpoint that fails the ways a real trigger API fails
// during an outage, and can come back at the same address. Plain sockets and one
// poll() thread, so fifty clients hanging on it at once cost nothing.
//
//   Refuse             nothing listens: every connect is refused
//   CloseWithoutAnswer reads the request, then closes the connection
//   EmptyServerError   answers 500 with an empty body
//   AnswerLate         reads the request and keeps quiet until the client gives up
//   Healthy            answers 200 {"ok":true}
//
// Every whole request it reads is recorded with its Idempotency-Key (in Refuse mode
// none arrive). The mode may change while clients are connected; it applies to the
// requests read afterwards.
#pragma once

#include "support/BindLoopback.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace bvgeo::testing {

class FaultyServer {
public:
    enum class Mode { Refuse, CloseWithoutAnswer, EmptyServerError, AnswerLate, Healthy };

    explicit FaultyServer(Mode mode) : mode_(mode) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        int on = 1;
        ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        port_ = bindLoopback(listener_);
        // A bound socket that does not listen refuses connections and keeps the port.
        if (mode != Mode::Refuse) ::listen(listener_, 128);
        (void)!::pipe2(wake_, O_CLOEXEC);
        thread_ = std::thread([this] { loop(); });
    }

    ~FaultyServer() {
        (void)!::write(wake_[1], "x", 1);
        thread_.join();
        for (auto& [fd, client] : clients_) ::close(fd);
        ::close(listener_);
        ::close(wake_[0]);
        ::close(wake_[1]);
    }

    FaultyServer(const FaultyServer&) = delete;
    FaultyServer& operator=(const FaultyServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& path = "/") const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

    void setMode(Mode mode) {
        std::lock_guard lock(mutex_);
        if (mode_ == Mode::Refuse && mode != Mode::Refuse) ::listen(listener_, 128);
        mode_ = mode;
    }

    // Idempotency-Key of every whole request read so far, in arrival order.
    std::vector<std::string> keys() const {
        std::lock_guard lock(mutex_);
        return keys_;
    }
    // The same for requests answered 200 (in Healthy mode).
    std::vector<std::string> acceptedKeys() const {
        std::lock_guard lock(mutex_);
        return accepted_;
    }

private:
    struct Client {
        std::string received;
        bool answered = false; // waiting for the client to close (AnswerLate)
    };

    void loop() {
        for (;;) {
            std::vector<pollfd> fds{{wake_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
            for (const auto& [fd, client] : clients_) fds.push_back({fd, POLLIN, 0});
            if (::poll(fds.data(), fds.size(), 1000) < 0) continue;
            if (fds[0].revents) return;
            if (fds[1].revents & POLLIN) {
                int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0) clients_[fd] = Client{};
            }
            for (std::size_t i = 2; i < fds.size(); ++i)
                if (fds[i].revents) serve(fds[i].fd);
        }
    }

    void serve(int fd) {
        char buffer[4096];
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) return drop(fd);
        Client& client = clients_[fd];
        if (client.answered) return;
        client.received.append(buffer, static_cast<std::size_t>(n));
        const auto end = client.received.find("\r\n\r\n");
        if (end == std::string::npos) return;
        const std::string head = lower(client.received.substr(0, end));
        std::size_t length = 0;
        if (auto at = head.find("\r\ncontent-length:"); at != std::string::npos)
            length = std::stoul(head.substr(at + 17, head.find("\r\n", at + 2) - at - 17));
        if (client.received.size() < end + 4 + length) return;

        const std::string key = headerValue(client.received.substr(0, end), "idempotency-key");
        Mode mode;
        {
            std::lock_guard lock(mutex_);
            keys_.push_back(key);
            mode = mode_;
            if (mode == Mode::Healthy) accepted_.push_back(key);
        }
        switch (mode) {
        case Mode::Refuse:
        case Mode::CloseWithoutAnswer: return drop(fd);
        case Mode::EmptyServerError:
            reply(fd, "HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            return drop(fd);
        case Mode::AnswerLate: client.answered = true; return;
        case Mode::Healthy:
            reply(fd, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 11\r\n"
                      "Connection: close\r\n\r\n{\"ok\":true}");
            return drop(fd);
        }
    }

    static void reply(int fd, const std::string& text) { (void)!::write(fd, text.data(), text.size()); }

    void drop(int fd) {
        ::close(fd);
        clients_.erase(fd);
    }

    static std::string lower(std::string text) {
        std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
        return text;
    }

    static std::string headerValue(const std::string& head, const std::string& name) {
        const std::string lowered = lower(head);
        const auto at = lowered.find("\r\n" + name + ":");
        if (at == std::string::npos) return {};
        auto start = at + 3 + name.size();
        auto stop = head.find("\r\n", start);
        std::string value = head.substr(start, stop - start);
        value.erase(0, value.find_first_not_of(' '));
        return value;
    }

    mutable std::mutex mutex_; // guards mode_, keys_, accepted_ and the listen call
    Mode mode_;
    std::vector<std::string> keys_, accepted_;

    int listener_ = -1;
    int port_ = 0;
    int wake_[2] = {-1, -1};
    std::map<int, Client> clients_; // server thread only
    std::thread thread_;
};

} // namespace bvgeo::testing
