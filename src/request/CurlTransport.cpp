#include "request/CurlTransport.hpp"

#include <bvgeo/platform/Platform.hpp>

#include "platform/TextTrim.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string_view>

namespace bvgeo {

namespace {

// What a browser-like client allows per host; beyond it transfers wait for a free
// connection instead of opening ever more sockets against one server.
constexpr long kMaxConnectionsPerHost = 6;
// Headers are not bounded by the body cap; a server sending endless header lines
// must not grow memory without limit either.
constexpr std::size_t kMaxHeaderBytes = 1024 * 1024;

// A header that cannot be written as one HTTP/1.1 field line would let a caller's
// value smuggle extra lines into the request; such fields are not sent.
bool isSendable(std::string_view name, std::string_view value) {
    if (name.empty() || name.find_first_of(":\r\n", 0) != std::string_view::npos) return false;
    if (name.find('\0') != std::string_view::npos) return false;
    return value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

} // namespace

struct CurlTransport::Transfer {
    URLRequest request;
    Options options;
    Completion done;

    CURL* easy = nullptr;
    curl_slist* headers = nullptr;
    char errorBuffer[CURL_ERROR_SIZE] = {};

    HTTPResponse response;
    std::string body;
    std::size_t headerBytes = 0;
    std::string limitExceeded; // why a cap stopped the transfer, if one did

    ~Transfer() {
        if (easy) curl_easy_cleanup(easy);
        if (headers) curl_slist_free_all(headers);
    }

    static size_t onBody(char* data, size_t size, size_t count, void* user) {
        auto& self = *static_cast<Transfer*>(user);
        const size_t bytes = size * count;
        if (self.body.size() + bytes > self.options.maxBodyBytes) {
            self.limitExceeded =
                "The response body is larger than " + std::to_string(self.options.maxBodyBytes) + " bytes";
            return 0; // makes libcurl abort with a write error
        }
        self.body.append(data, bytes);
        return bytes;
    }

    static size_t onHeader(char* data, size_t size, size_t count, void* user) {
        auto& self = *static_cast<Transfer*>(user);
        const size_t bytes = size * count;
        self.headerBytes += bytes;
        if (self.headerBytes > kMaxHeaderBytes) {
            self.limitExceeded = "The response headers are larger than " + std::to_string(kMaxHeaderBytes) + " bytes";
            return 0;
        }
        std::string_view line(data, bytes);
        if (line.starts_with("HTTP/")) {
            // A new status line (after a 1xx answer): only the final answer's fields count.
            self.response.headerFields.clear();
            return bytes;
        }
        if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            auto more = trim(line);
            if (!self.response.headerFields.empty() && !more.empty())
                self.response.headerFields.back().second.append(" ").append(more);
            return bytes;
        }
        auto colon = line.find(':');
        if (colon == std::string_view::npos) return bytes; // the blank line ending the block
        self.response.headerFields.emplace_back(std::string(trim(line.substr(0, colon))),
                                                std::string(trim(line.substr(colon + 1))));
        return bytes;
    }

    // Sets the easy handle up; false when libcurl refused something essential.
    bool configure() {
        easy = curl_easy_init();
        if (!easy) return false;

        bool hasAccept = false;
        bool hasContentType = false;
        for (const auto& [name, value] : request.headers) {
            if (!isSendable(name, value)) continue;
            hasAccept = hasAccept || headerNameEquals(name, "Accept");
            hasContentType = hasContentType || headerNameEquals(name, "Content-Type");
            // "Name;" is libcurl's way to send a field with an empty value.
            std::string line = value.empty() ? name + ";" : name + ": " + value;
            if (auto* grown = curl_slist_append(headers, line.c_str())) headers = grown;
            else return false;
        }
        // Send what the caller asked for and nothing libcurl would add on its own
        // ("Accept: */*", a form Content-Type for bodies, "Expect: 100-continue").
        std::vector<const char*> suppressed = {"Expect:"};
        if (!hasAccept) suppressed.push_back("Accept:");
        if (!hasContentType) suppressed.push_back("Content-Type:");
        for (const char* line : suppressed) {
            if (auto* grown = curl_slist_append(headers, line)) headers = grown;
            else return false;
        }

        const double seconds = options.timeoutSeconds;
        const long timeoutMs = std::max(1L, static_cast<long>(std::llround(seconds * 1000.0)));

        bool ok = curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str()) == CURLE_OK;
        curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
        setSecureHTTPOptions(easy);
        curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMs);
        curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
        curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(options.maxBodyBytes));
        curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorBuffer);
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
        curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
        curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);

        const bool sendsBody =
            request.body.has_value() || request.method == HTTPMethod::POST || request.method == HTTPMethod::PUT;
        if (sendsBody) {
            // libcurl does not copy POSTFIELDS; the request's body lives in this transfer
            // until the easy handle is gone. A POST or PUT without one sends Content-Length: 0.
            static const char kNoBytes[] = "";
            const char* bytes = request.body ? request.body->data() : kNoBytes;
            const std::size_t length = request.body ? request.body->size() : 0;
            curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(length));
            curl_easy_setopt(easy, CURLOPT_POSTFIELDS, bytes);
            if (request.method != HTTPMethod::POST)
                curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, std::string(rawValue(request.method)).c_str());
        } else if (request.method == HTTPMethod::GET) {
            curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
        } else {
            curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, std::string(rawValue(request.method)).c_str());
        }
        return ok;
    }
};

CurlTransport::CurlTransport() {
    ensureCurlReady();
    multi_ = curl_multi_init();
    if (!multi_) throw std::runtime_error("libcurl could not create a multi handle");
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, kMaxConnectionsPerHost);
    thread_ = std::thread([this] { run(); });
}

CurlTransport::~CurlTransport() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    curl_multi_wakeup(multi_);
    if (thread_.joinable()) thread_.join();
    for (auto& [easy, transfer] : active_) curl_multi_remove_handle(multi_, easy);
    active_.clear();
    incoming_.clear();
    curl_multi_cleanup(multi_);
}

bool CurlTransport::isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

void CurlTransport::submit(URLRequest request, Options options, Completion done) {
    auto transfer = std::make_unique<Transfer>();
    transfer->request = std::move(request);
    transfer->options = options;
    transfer->done = std::move(done);
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    incoming_.push_back(std::move(transfer));
    // Under the lock, so the destructor cannot free the multi handle meanwhile;
    // waking it only writes to a socket and never blocks.
    curl_multi_wakeup(multi_);
}

void CurlTransport::run() {
    for (;;) {
        std::vector<std::unique_ptr<Transfer>> fresh;
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return;
            fresh.swap(incoming_);
        }
        try {
            for (auto& transfer : fresh) startTransfer(std::move(transfer));

            int running = 0;
            curl_multi_perform(multi_, &running);
            int left = 0;
            while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
                if (message->msg != CURLMSG_DONE) continue;
                // The message dies with the handle's removal; copy what is needed first.
                CURL* easy = message->easy_handle;
                CURLcode code = message->data.result;
                finishTransfer(easy, code);
            }
        } catch (const std::exception&) {
            // Out of memory for one transfer's bookkeeping: the others keep going.
        }
        curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
}

void CurlTransport::startTransfer(std::unique_ptr<Transfer> transfer) {
    Result result;
    const auto held = unresolved_.find(hostOfHTTPURL(transfer->request.url));
    if (transfer->options.noNetwork) {
        result.code = CURLE_COULDNT_CONNECT;
        result.errorDescription = "Couldn't connect to server (no network)";
    } else if (!isValidHTTPURL(transfer->request.url)) {
        result.code = CURLE_URL_MALFORMAT;
        result.errorDescription = "Invalid URL: " + transfer->request.url;
    } else if (held != unresolved_.end() && isHeldBack(held->second, platform().clock->currentTime())) {
        result.code = CURLE_COULDNT_RESOLVE_HOST;
        result.errorDescription = "Could not resolve host: " + held->first + " (not looked up again for " +
                                  std::to_string(static_cast<long long>(held->second.seconds)) + " s)";
    } else if (!transfer->configure()) {
        result.code = CURLE_FAILED_INIT;
        result.errorDescription = "The request could not be set up";
    } else if (curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
        result.code = CURLE_FAILED_INIT;
        result.errorDescription = "The request could not be started";
    } else {
        CURL* easy = transfer->easy;
        active_.emplace(easy, std::move(transfer));
        return;
    }
    complete(*transfer, result);
}

void CurlTransport::finishTransfer(void* easy, int code) {
    auto found = active_.find(easy);
    if (found == active_.end()) return;
    std::unique_ptr<Transfer> transfer = std::move(found->second);
    active_.erase(found);
    curl_multi_remove_handle(multi_, easy);

    Result result;
    result.code = code;
    const std::string host = hostOfHTTPURL(transfer->request.url);
    if (code == CURLE_COULDNT_RESOLVE_HOST) {
        auto previous = unresolved_.find(host);
        const auto hold = holdAfterFailure(previous == unresolved_.end() ? std::nullopt
                                                                         : std::optional<ResolveHold>(previous->second),
                                           platform().clock->currentTime());
        unresolved_[host] = hold;
    } else {
        unresolved_.erase(host);
    }
    if (code == CURLE_OK) {
        long status = 0;
        curl_easy_getinfo(transfer->easy, CURLINFO_RESPONSE_CODE, &status);
        char* effective = nullptr;
        curl_easy_getinfo(transfer->easy, CURLINFO_EFFECTIVE_URL, &effective);
        result.response = std::move(transfer->response);
        result.response.statusCode = status;
        result.response.url = effective ? effective : transfer->request.url;
        result.body = std::move(transfer->body);
    } else if (!transfer->limitExceeded.empty()) {
        result.errorDescription = transfer->limitExceeded;
    } else if (code == CURLE_FILESIZE_EXCEEDED) {
        result.errorDescription =
            "The response body is larger than " + std::to_string(transfer->options.maxBodyBytes) + " bytes";
    } else if (transfer->errorBuffer[0] != '\0') {
        result.errorDescription = transfer->errorBuffer;
    } else {
        result.errorDescription = curl_easy_strerror(static_cast<CURLcode>(code));
    }
    complete(*transfer, result);
}

void CurlTransport::complete(Transfer& transfer, Result& result) {
    // Give the easy handle and its connection back before running caller code.
    Completion done = std::move(transfer.done);
    if (transfer.easy) {
        curl_easy_cleanup(transfer.easy);
        transfer.easy = nullptr;
    }
    if (done) done(result);
}

} // namespace bvgeo
