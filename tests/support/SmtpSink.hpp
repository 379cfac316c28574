// SmtpSink: a one-session SMTP server on 127.0.0.1, on a port the kernel picks. It
// speaks just enough of the protocol for a client to hand over one message and
// records the envelope and the message (dot-stuffing undone, and as it came).
// Silent mode accepts the connection and never answers, for timeout tests.
//
// Serves on its own thread; finish() joins it, after which the session is the
// test's to read. Every wait is bounded, so a client that stalls cannot hang a test.
#pragma once

#include "support/BindLoopback.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace bvgeo::testing {

class SmtpSink {
public:
    struct Session {
        std::string mailFrom;
        std::vector<std::string> recipients;
        std::string data;    // the message with leading dots un-doubled
        std::string rawData; // the DATA lines as they came, final "." line excluded
        bool quit = false;
    };

    explicit SmtpSink(bool silent = false) : silent_(silent) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        port_ = bindLoopback(listener_);
        if (::listen(listener_, 1) != 0) port_ = 0;
        thread_ = std::thread([this] { serve(); });
    }

    ~SmtpSink() { finish(); }

    SmtpSink(const SmtpSink&) = delete;
    SmtpSink& operator=(const SmtpSink&) = delete;

    int port() const { return port_; }
    std::string url() const { return "smtp://127.0.0.1:" + std::to_string(port_); }

    const Session& finish() {
        if (thread_.joinable()) thread_.join();
        if (listener_ >= 0) ::close(listener_);
        listener_ = -1;
        return session_;
    }

private:
    using Clock = std::chrono::steady_clock;

    bool waitReadable(int fd) const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
        pollfd entry{fd, POLLIN, 0};
        return left > 0 && ::poll(&entry, 1, int(left)) == 1;
    }

    // One line without its CRLF; nothing when the client went away or took too long.
    std::optional<std::string> readLine(int fd) {
        for (;;) {
            if (auto end = buffer_.find("\r\n"); end != std::string::npos) {
                auto line = buffer_.substr(0, end);
                buffer_.erase(0, end + 2);
                return line;
            }
            char chunk[4096];
            if (!waitReadable(fd)) return std::nullopt;
            const auto got = ::recv(fd, chunk, sizeof chunk, 0);
            if (got <= 0) return std::nullopt;
            buffer_.append(chunk, std::size_t(got));
        }
    }

    static void say(int fd, const std::string& text) { (void)!::send(fd, text.data(), text.size(), MSG_NOSIGNAL); }

    static std::string between(const std::string& line, char open, char close) {
        const auto from = line.find(open), to = line.find(close, from);
        return from == std::string::npos || to == std::string::npos ? line : line.substr(from + 1, to - from - 1);
    }

    void serve() {
        deadline_ = Clock::now() + std::chrono::seconds(10);
        if (port_ == 0 || !waitReadable(listener_)) return;
        const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return;
        if (silent_) {
            while (readLine(fd)) {
            }
            ::close(fd);
            return;
        }
        say(fd, "220 sink ready\r\n");
        while (auto line = readLine(fd)) {
            const auto verb = line->substr(0, 4);
            if (verb == "EHLO" || verb == "HELO") {
                say(fd, "250 sink\r\n");
            } else if (verb == "MAIL") {
                session_.mailFrom = between(*line, '<', '>');
                say(fd, "250 ok\r\n");
            } else if (verb == "RCPT") {
                session_.recipients.push_back(between(*line, '<', '>'));
                say(fd, "250 ok\r\n");
            } else if (verb == "DATA") {
                say(fd, "354 go on\r\n");
                std::optional<std::string> data;
                while ((data = readLine(fd)) && *data != ".") {
                    session_.rawData += *data + "\r\n";
                    session_.data += (data->starts_with('.') ? data->substr(1) : *data) + "\r\n";
                }
                if (!data) break;
                say(fd, "250 queued\r\n");
            } else if (verb == "QUIT") {
                session_.quit = true;
                say(fd, "221 bye\r\n");
                break;
            } else {
                say(fd, verb == "RSET" || verb == "NOOP" ? "250 ok\r\n" : "502 not here\r\n");
            }
        }
        ::close(fd);
    }

    const bool silent_;
    int listener_ = -1;
    int port_ = 0;
    Clock::time_point deadline_;
    std::string buffer_;
    Session session_;
    std::thread thread_;
};

} // namespace bvgeo::testing
