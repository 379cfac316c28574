#include <bvgeo/DebugConsole.hpp>

#include "debug/ConsoleAssets.hpp"
#include "debug/DebugMapViewController.hpp"
#include "debug/LogViewerViewController.hpp"
#include "debug/MailReport.hpp"
#include "debug/MimeMessage.hpp"
#include "debug/SmtpSender.hpp"
#include "server/LoopbackHttpServer.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <nlohmann/json.hpp>

#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <random>

namespace bvgeo {

namespace {

using nlohmann::json;

constexpr std::string_view kTokenPlaceholder = "{{BVGEO_TOKEN}}";
constexpr std::string_view kTokenHeader = "X-BVGeo-Token";
// Pages, scripts and data come from the console alone; only map tiles, when a host
// names a tile server, may come from elsewhere.
constexpr std::string_view kPagePolicy = "default-src 'self'; script-src 'self'; style-src 'self' 'unsafe-inline'; "
                                         "connect-src 'self'; frame-ancestors 'none'; base-uri 'none'";
constexpr std::string_view kImagesOwn = "; img-src 'self' data:";
constexpr std::string_view kImagesWithTiles = "; img-src 'self' data: https: http:";

std::string newToken() {
    std::random_device random;
    std::string token;
    char hex[9];
    for (int i = 0; i < 4; ++i) {
        std::snprintf(hex, sizeof hex, "%08x", static_cast<unsigned>(random()));
        token += hex;
    }
    return token;
}

// Compares without stopping at the first difference, so response times do not
// reveal how much of a guessed token was right.
bool sameToken(std::string_view given, std::string_view expected) {
    if (given.size() != expected.size() || expected.empty()) return false;
    unsigned char difference = 0;
    for (std::size_t i = 0; i < given.size(); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ expected[i]);
    return difference == 0;
}

ServerResponse withCommonHeaders(ServerResponse response) {
    response.headers.emplace_back("X-Content-Type-Options", "nosniff");
    response.headers.emplace_back("Referrer-Policy", "no-referrer");
    return response;
}

ServerResponse jsonAnswer(const json& body, int status = 200) {
    // Log lines are whatever the library was given; invalid UTF-8 must not fail the page.
    ServerResponse response = jsonResponse(status, body);
    response.headers.emplace_back("Cache-Control", "no-store");
    return withCommonHeaders(std::move(response));
}

ServerResponse problem(int status, const std::string& message) { return jsonAnswer({{"error", message}}, status); }

std::optional<std::int64_t> parseInteger(const std::string& text) {
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

} // namespace

class DebugConsole::Impl {
public:
    explicit Impl(DebugConsoleOptions options)
        : options_(std::move(options)), waiters_(std::make_shared<Waiters>()),
          http_([this](const ServerRequest& request) { return handleSafely(request); }) {
        http_.setStopHook([waiters = waiters_] {
            {
                std::lock_guard lock(waiters->mutex);
                waiters->stopping = true;
            }
            waiters->changed.notify_all();
        });
    }

    bool start() {
        if (http_.running()) {
            setError("the debug console already runs at " + http_.baseUrl());
            return false;
        }
        {
            std::lock_guard lock(mutex_);
            token_ = newToken();
        }
        {
            std::lock_guard lock(waiters_->mutex);
            waiters_->stopping = false;
        }
        const bool started = http_.start(options_.port);
        setError(started ? "" : http_.error());
        return started;
    }

    void stop() { http_.stop(); }

    bool running() const { return http_.running(); }
    int port() const { return http_.port(); }
    std::string url() const { return http_.running() ? http_.baseUrl() : std::string(); }
    std::string error() const {
        std::lock_guard lock(mutex_);
        return error_;
    }
    std::string token() const {
        std::lock_guard lock(mutex_);
        return token_;
    }

private:
    // What a worker waiting for the main queue shares with the work it posted there;
    // owned jointly, since the work may run after the worker gave up waiting.
    struct Waiters {
        std::mutex mutex;
        std::condition_variable changed;
        bool stopping = false;
    };

    void setError(std::string text) {
        std::lock_guard lock(mutex_);
        error_ = std::move(text);
    }

    // Runs `work` on the main queue and waits for its value; nothing when the
    // console stops or the main queue does not get to it in time.
    template <class T>
    std::optional<T> onMainQueue(std::function<T()> work) {
        auto waiters = waiters_;
        auto result = std::make_shared<std::optional<T>>();
        {
            std::lock_guard lock(waiters->mutex);
            if (waiters->stopping) return std::nullopt;
        }
        platform().mainQueue->async([waiters, result, work = std::move(work)] {
            T value = work();
            {
                std::lock_guard lock(waiters->mutex);
                *result = std::move(value);
            }
            waiters->changed.notify_all();
        });
        std::unique_lock lock(waiters->mutex);
        waiters->changed.wait_for(lock, std::chrono::duration<double>(options_.actionTimeoutSeconds),
                                  [&] { return result->has_value() || waiters->stopping; });
        return std::move(*result);
    }

    bool allowedHost(const std::optional<std::string>& host) const {
        // A page of another site that rebinds its name to 127.0.0.1 still sends its
        // own name here, so anything but our address is refused.
        if (!host) return false;
        const std::string port = ":" + std::to_string(http_.port());
        return equalsIgnoringCase(*host, LoopbackHttpServer::kHost + port) || equalsIgnoringCase(*host, "localhost" + port);
    }

    bool allowedOrigin(const std::optional<std::string>& origin) const {
        if (!origin) return true; // same-origin GETs and non-browser clients send none
        const std::string port = ":" + std::to_string(http_.port());
        return equalsIgnoringCase(*origin, std::string("http://") + LoopbackHttpServer::kHost + port) ||
               equalsIgnoringCase(*origin, "http://localhost" + port);
    }

    bool hasToken(const ServerRequest& request) const {
        const std::string expected = token();
        if (auto header = request.header(kTokenHeader)) return sameToken(*header, expected);
        if (auto query = queryParameter(request.query, "token")) return sameToken(*query, expected);
        return false;
    }

    ServerResponse handleSafely(const ServerRequest& request) {
        try {
            return handle(request);
        } catch (const std::exception& error) {
            return problem(500, error.what());
        }
    }

    ServerResponse handle(const ServerRequest& request) {
        if (!allowedHost(request.header("Host"))) return problem(403, "unknown Host");
        if (!allowedOrigin(request.header("Origin"))) return problem(403, "unknown Origin");
        const std::string& path = request.path;
        if (request.method == "GET" || request.method == "HEAD") { // httplib drops the body of a HEAD answer
            if (path == "/") {
                ServerResponse redirect;
                redirect.status = 302;
                redirect.headers.emplace_back("Location", "/map");
                return withCommonHeaders(std::move(redirect));
            }
            if (path == "/api/position") return jsonAnswer(DebugMapViewController::userLocation());
            if (path == "/api/map") return jsonAnswer(DebugMapViewController::drawOverlays(options_.tileUrlTemplate));
            if (path == "/api/logs") return logs(request);
            if (path == "/api/restart/default-name")
                return jsonAnswer({{"name", LogViewerViewController::defaultArchiveName()}});
            if (path == "/api/report.eml") return reportDownload(request);
            return asset(path);
        }
        if (request.method == "POST") {
            if (path == "/api/restart") return restart(request);
            if (path == "/api/email") return email(request);
        }
        return problem(404, "no such page");
    }

    ServerResponse asset(const std::string& path) const {
        for (const auto& file : consoleAssets()) {
            if (file.path != path) continue;
            ServerResponse response;
            response.contentType = std::string(file.contentType);
            response.body = std::string(file.data);
            if (file.contentType.starts_with("text/html")) {
                for (auto at = response.body.find(kTokenPlaceholder); at != std::string::npos;
                     at = response.body.find(kTokenPlaceholder, at))
                    response.body.replace(at, kTokenPlaceholder.size(), token());
                std::string policy(kPagePolicy);
                policy += options_.tileUrlTemplate.empty() ? kImagesOwn : kImagesWithTiles;
                response.headers.emplace_back("Content-Security-Policy", policy);
                response.headers.emplace_back("X-Frame-Options", "DENY");
                response.headers.emplace_back("Cache-Control", "no-store");
            }
            return withCommonHeaders(std::move(response));
        }
        return problem(404, "no such page");
    }

    ServerResponse logs(const ServerRequest& request) const {
        const auto filter = queryParameter(request.query, "filter").value_or("NONE");
        const auto category = LogViewerViewController::categoryForFilter(filter);
        if (!category) return problem(400, "unknown filter '" + filter + "'");
        std::optional<std::int64_t> before;
        if (auto text = queryParameter(request.query, "before")) {
            before = parseInteger(*text);
            if (!before) return problem(400, "before must be a row id");
        }
        std::size_t limit = LogViewerViewController::kDefaultPageSize;
        if (auto text = queryParameter(request.query, "limit")) {
            auto value = parseInteger(*text);
            if (!value || *value < 1) return problem(400, "limit must be a positive number");
            limit = static_cast<std::size_t>(std::min<std::int64_t>(*value, LogViewerViewController::kMaxPageSize));
        }
        return jsonAnswer(LogViewerViewController::logPage(*category, before, limit));
    }

    ServerResponse restart(const ServerRequest& request) {
        if (!hasToken(request)) return problem(403, "missing or wrong token");
        const json body = json::parse(request.body, nullptr, false);
        if (body.is_discarded() || !body.is_object() || !body.contains("name") || !body["name"].is_string())
            return problem(400, "expected {\"name\": \"...\"}");
        const std::string name = body["name"].get<std::string>();
        auto outcome = onMainQueue<LogViewerViewController::RestartOutcome>(
            [name] { return LogViewerViewController::resetAlertViewDoneHandler(name); });
        if (!outcome) return problem(503, "the main queue did not run the restart");
        if (outcome->ok) return jsonAnswer({{"ok", true}});
        return jsonAnswer({{"ok", false}, {"code", outcome->code}, {"message", outcome->message}});
    }

    std::optional<MailReport> report() {
        auto fields = onMainQueue<DeviceReportFields>([] { return LogViewerViewController::reportFields(); });
        if (!fields) return std::nullopt;
        return LogViewerViewController::emailReport(*fields);
    }

    std::string messageText(const MailReport& mail, const std::string& from, const std::vector<std::string>& to) {
        return mimeMessage(mail, from, to, platform().clock->now(), newToken());
    }

    ServerResponse email(const ServerRequest& request) {
        if (!hasToken(request)) return problem(403, "missing or wrong token");
        if (!options_.mailServer) {
            platform().console->print("Can not send email.");
            return jsonAnswer({{"sent", false}, {"download", "/api/report.eml?token=" + token()}});
        }
        auto mail = report();
        if (!mail) return problem(503, "the main queue did not collect the report");
        platform().console->print(mail->body);
        const auto& server = *options_.mailServer;
        MailServerSettings settings;
        settings.url = server.url;
        settings.from = server.from;
        settings.to = server.to;
        settings.username = server.username;
        settings.password = server.password;
        if (auto failure = sendMail(settings, messageText(*mail, server.from, server.to)))
            return jsonAnswer({{"sent", false}, {"error", *failure}});
        return jsonAnswer({{"sent", true}});
    }

    ServerResponse reportDownload(const ServerRequest& request) {
        if (!hasToken(request)) return problem(403, "missing or wrong token");
        auto mail = report();
        if (!mail) return problem(503, "the main queue did not collect the report");
        ServerResponse response;
        response.contentType = "message/rfc822";
        response.body = messageText(*mail, "bvgeo@localhost", {"bvgeo@localhost"});
        response.headers.emplace_back("Content-Disposition", "attachment; filename=\"bvgeo-report.eml\"");
        response.headers.emplace_back("Cache-Control", "no-store");
        return withCommonHeaders(std::move(response));
    }

    DebugConsoleOptions options_;
    std::shared_ptr<Waiters> waiters_;
    mutable std::mutex mutex_; // guards token_ and error_
    std::string token_;
    std::string error_;
    LoopbackHttpServer http_; // last: its workers use everything above until it stops
};

DebugConsole::DebugConsole(DebugConsoleOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}
DebugConsole::~DebugConsole() { impl_->stop(); }
bool DebugConsole::start() { return impl_->start(); }
void DebugConsole::stop() { impl_->stop(); }
bool DebugConsole::running() const { return impl_->running(); }
int DebugConsole::port() const { return impl_->port(); }
std::string DebugConsole::url() const { return impl_->url(); }
std::string DebugConsole::error() const { return impl_->error(); }
std::string DebugConsole::token() const { return impl_->token(); }

} // namespace bvgeo
