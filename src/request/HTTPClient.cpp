#include "request/HTTPClient.hpp"

#include "platform/SharedInstance.hpp"
#include "request/CompactJsonText.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string_view>

namespace bvgeo {

namespace {

// The JSON library decodes iteratively but encodes recursively; an answer nested
// deeper than this would be re-encoded by parseResponse at the risk of the thread's
// stack, so it is refused before decoding.
constexpr int kMaxNesting = 512;

bool withinNestingLimit(std::string_view text) {
    int depth = 0;
    bool inString = false;
    bool escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped) escaped = false;
            else if (c == '\\') escaped = true;
            else if (c == '"') inString = false;
            continue;
        }
        if (c == '"') inString = true;
        else if (c == '[' || c == '{') {
            if (++depth > kMaxNesting) return false;
        } else if (c == ']' || c == '}') --depth;
    }
    return true;
}

HTTPError decodingError(int code, std::string description) {
    return HTTPError{std::string(kHTTPDecodingErrorDomain), code, std::move(description)};
}

// Hands each decoding event to a caller's reader and to the text that the decoded
// document would print as, and keeps what decoding as a document would have thrown.
// The reader cannot stop the decoding: whether the body decodes is the text's
// business alone, as it is for a document.
class AnswerEvents final : public nlohmann::json_sax<nlohmann::json> {
public:
    using json = nlohmann::json;

    // A null reader is allowed: the body is then only checked (and printed).
    AnswerEvents(json_sax<json>* reader, bool buildText) : reader_(reader), buildText_(buildText) {}

    bool null() override {
        return forward([](json_sax<json>& to) { to.null(); });
    }
    bool boolean(bool v) override {
        return forward([v](json_sax<json>& to) { to.boolean(v); });
    }
    bool number_integer(json::number_integer_t v) override {
        return forward([v](json_sax<json>& to) { to.number_integer(v); });
    }
    bool number_unsigned(json::number_unsigned_t v) override {
        return forward([v](json_sax<json>& to) { to.number_unsigned(v); });
    }
    bool number_float(json::number_float_t v, const json::string_t& raw) override {
        return forward([v, &raw](json_sax<json>& to) { to.number_float(v, raw); });
    }
    bool string(json::string_t& v) override {
        return forward([&v](json_sax<json>& to) { to.string(v); });
    }
    bool binary(json::binary_t& v) override {
        return forward([&v](json_sax<json>& to) { to.binary(v); });
    }
    bool start_object(std::size_t elements) override {
        if (!started_) isObject_ = true;
        return forward([elements](json_sax<json>& to) { to.start_object(elements); });
    }
    bool start_array(std::size_t elements) override {
        return forward([elements](json_sax<json>& to) { to.start_array(elements); });
    }
    bool key(json::string_t& v) override {
        return forward([&v](json_sax<json>& to) { to.key(v); });
    }
    bool end_object() override {
        return forward([](json_sax<json>& to) { to.end_object(); });
    }
    bool end_array() override {
        return forward([](json_sax<json>& to) { to.end_array(); });
    }
    bool parse_error(std::size_t position, const std::string& lastToken, const nlohmann::detail::exception& e) override {
        if (reader_) reader_->parse_error(position, lastToken, e);
        error_ = decodingError(e.id, e.what());
        return false;
    }

    std::optional<HTTPError> error() const { return error_; }
    bool isObject() const { return isObject_; }
    std::string takeText() { return text_.take(); }

private:
    // The text first: a reader may take a string's contents.
    template <class Event>
    bool forward(Event event) {
        started_ = true;
        if (buildText_) event(text_);
        if (reader_) event(*reader_);
        return true;
    }

    json_sax<json>* reader_;
    const bool buildText_;
    CompactJsonText text_;
    bool started_ = false;
    bool isObject_ = false;
    std::optional<HTTPError> error_;
};

// The failure checks both completions make, in this order: the transfer failed, the
// body does not decode (too deep, or what `decode` reports or throws), the body is
// not an object. The body is let go once decoded, before any callback runs (or
// moved to `keep`, when given). True when the caller goes on to its success;
// otherwise `failure` has been told why.
bool answerUsable(Console& console, CurlTransport::Result& result, const HTTPClient::Failure& failure,
                  const std::function<std::optional<HTTPError>()>& decode, const std::function<bool()>& isObject,
                  std::string* keep = nullptr) {
    if (result.code != 0) {
        HTTPError error{std::string(kHTTPTransportErrorDomain), result.code, result.errorDescription};
        console.log("ERROR: " + error.description);
        if (failure) failure(HTTPResponse{}, error);
        return false;
    }
    std::optional<HTTPError> error;
    if (!withinNestingLimit(result.body)) {
        error = decodingError(kHTTPErrorTooDeep,
                              "The JSON text is nested deeper than " + std::to_string(kMaxNesting) + " levels");
    } else {
        try {
            error = decode();
        } catch (const std::exception& e) {
            error = decodingError(-1, e.what());
        }
    }
    if (keep) keep->swap(result.body);
    std::string().swap(result.body);
    if (error) {
        console.log("Error serializing data: " + error->description);
        if (failure) failure(result.response, *error);
        return false;
    }
    if (!isObject()) {
        if (failure) failure(result.response, decodingError(kHTTPErrorNotAnObject, "The response is not a JSON object"));
        return false;
    }
    return true;
}

} // namespace

HTTPClient& HTTPClient::sharedInstance() {
    static SharedInstance<HTTPClient> slot;
    return slot.get([] { return std::unique_ptr<HTTPClient>(new HTTPClient()); });
}

HTTPClient::HTTPClient() = default;

HTTPClient::~HTTPClient() {
    // Joined outside the lock: a completion finishing meanwhile takes it.
    std::unique_ptr<CurlTransport> transport;
    {
        std::lock_guard lock(mutex_);
        transport = std::move(transport_);
    }
    transport.reset();
    std::lock_guard lock(mutex_);
    inFlight_ = 0;
    idle_.notify_all();
}

URLRequest HTTPClient::request(const std::string& url, HTTPMethod method,
                               const std::optional<nlohmann::json>& parameters,
                               const std::optional<nlohmann::json>& headers) const {
    URLRequest request(url, method);
    if (parameters) {
        try {
            request.body = parameters->dump();
        } catch (const std::exception&) {
            // Text that is not valid UTF-8 cannot be encoded; the request goes without a body.
        }
        request.add("Content-Type", "application/json");
        request.add("Accept", "application/json");
    }
    if (headers && headers->is_object()) {
        for (const auto& [name, value] : headers->items()) {
            if (value.is_string()) request.add(name, value.get_ref<const std::string&>());
        }
    }
    return request;
}

CurlTransport* HTTPClient::transport() {
    if (!transport_) {
        try {
            transport_ = std::make_unique<CurlTransport>();
        } catch (const std::exception&) {
            return nullptr;
        }
    }
    return transport_.get();
}

void HTTPClient::performTask(URLRequest request, Success success, Failure failure) {
    submit(
        std::move(request),
        [this, success, failure](CurlTransport::Result& result) { complete(result, success, failure); }, failure);
}

void HTTPClient::submit(URLRequest request, CurlTransport::Completion handle, const Failure& failure) {
    CurlTransport* sender = nullptr;
    {
        std::lock_guard lock(mutex_);
        sender = transport();
        ++started_;
        if (sender) ++inFlight_;
    }
    if (!sender) {
        // Without a transport thread the failure still must not run inside this call.
        HTTPError error{std::string(kHTTPTransportErrorDomain), -1, "The HTTP transport could not be started"};
        platform().console->log("ERROR: " + error.description);
        if (failure) platform().mainQueue->async([failure, error] { failure(HTTPResponse{}, error); });
        return;
    }
    try {
        CurlTransport::Options options{timeout_.load(), maxResponseBytes_.load()};
        std::shared_ptr<const std::function<bool()>> down;
        {
            std::lock_guard lock(mutex_);
            down = networkDown_;
        }
        options.noNetwork = down && (*down)();
        sender->submit(std::move(request), options, [this, handle = std::move(handle)](CurlTransport::Result& result) {
            handle(result);
            finishOne();
        });
    } catch (const std::exception&) {
        finishOne();
    }
}

void HTTPClient::performRequest(const URLRequest& request, Success success, Failure failure) {
    performTask(request, std::move(success), std::move(failure));
}

void HTTPClient::get(const std::string& url, const std::optional<nlohmann::json>& headers, Success success,
                     Failure failure) {
    performTask(request(url, HTTPMethod::GET, std::nullopt, headers), std::move(success), std::move(failure));
}

void HTTPClient::post(const std::string& url, const std::optional<nlohmann::json>& parameters,
                      const std::optional<nlohmann::json>& headers, Success success, Failure failure) {
    performTask(request(url, HTTPMethod::POST, parameters, headers), std::move(success), std::move(failure));
}

void HTTPClient::put(const std::string& url, const std::optional<nlohmann::json>& parameters,
                     const std::optional<nlohmann::json>& headers, Success success, Failure failure) {
    performTask(request(url, HTTPMethod::PUT, parameters, headers), std::move(success), std::move(failure));
}

void HTTPClient::del(const std::string& url, const std::optional<nlohmann::json>& headers, Success success,
                     Failure failure) {
    performTask(request(url, HTTPMethod::DELETE, std::nullopt, headers), std::move(success), std::move(failure));
}

void HTTPClient::getStreamed(const std::string& url, const std::optional<nlohmann::json>& headers,
                             std::shared_ptr<JsonReader> reader, StreamSuccess success, Failure failure) {
    submit(
        request(url, HTTPMethod::GET, std::nullopt, headers),
        [this, reader = std::move(reader), success, failure](CurlTransport::Result& result) {
            completeStreamed(result, reader.get(), success, failure);
        },
        failure);
}

void HTTPClient::getStreamedKeepingBody(const std::string& url, const std::optional<nlohmann::json>& headers,
                                        std::shared_ptr<JsonReader> reader, StreamBodySuccess success,
                                        Failure failure) {
    submit(
        request(url, HTTPMethod::GET, std::nullopt, headers),
        [this, reader = std::move(reader), success, failure](CurlTransport::Result& result) {
            std::string body;
            completeStreamed(
                result, reader.get(),
                [&body, &success](const HTTPResponse& response) {
                    if (success) success(response, std::move(body));
                },
                failure, &body);
        },
        failure);
}

void HTTPClient::setNetworkDown(std::function<bool()> down) {
    auto shared = down ? std::make_shared<const std::function<bool()>>(std::move(down)) : nullptr;
    std::lock_guard lock(mutex_);
    networkDown_ = std::move(shared);
}

nlohmann::json HTTPClient::parseResponse(const nlohmann::json& data) {
    try {
        auto fresh = nlohmann::json::parse(data.dump());
        if (fresh.is_object()) return fresh;
    } catch (const std::exception&) {
    }
    return nlohmann::json::object();
}

void HTTPClient::complete(CurlTransport::Result& result, const Success& success, const Failure& failure) {
    auto& console = *platform().console;
    try {
        nlohmann::json data;
        auto decode = [&]() -> std::optional<HTTPError> {
            try {
                data = nlohmann::json::parse(result.body);
            } catch (const nlohmann::json::exception& e) {
                return decodingError(e.id, e.what());
            }
            return std::nullopt;
        };
        if (!answerUsable(console, result, failure, decode, [&] { return data.is_object(); })) return;

        const nlohmann::json dictionary = parseResponse(data);
        console.print(dictionary.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
        if (success) success(dictionary, result.response);
    } catch (...) {
        // A callback that throws must not end the transport thread and every
        // request after it.
    }
}

void HTTPClient::completeStreamed(CurlTransport::Result& result, JsonReader* reader, const StreamSuccess& success,
                                  const Failure& failure, std::string* keptBody) {
    auto& console = *platform().console;
    try {
        const bool printing = console.wantsPrints();
        AnswerEvents events(reader, printing);
        auto decode = [&] {
            nlohmann::json::sax_parse(result.body, &events);
            return events.error();
        };
        if (!answerUsable(console, result, failure, decode, [&] { return events.isObject(); }, keptBody)) return;

        if (printing) console.print(events.takeText());
        if (success) success(result.response);
    } catch (...) {
        // As in complete(): the transport thread outlives a throwing callback.
    }
}

void HTTPClient::finishOne() {
    std::lock_guard lock(mutex_);
    if (inFlight_ > 0 && --inFlight_ == 0) idle_.notify_all();
}

void HTTPClient::setRequestTimeout(double seconds) {
    timeout_.store(std::isfinite(seconds) && seconds > 0 ? seconds : kDefaultRequestTimeout);
}

double HTTPClient::requestTimeout() const { return timeout_.load(); }

void HTTPClient::setMaxResponseBytes(std::size_t bytes) { maxResponseBytes_.store(bytes); }

std::size_t HTTPClient::inFlight() const {
    std::lock_guard lock(mutex_);
    return inFlight_;
}

std::uint64_t HTTPClient::requestsStarted() const {
    std::lock_guard lock(mutex_);
    return started_;
}

bool HTTPClient::waitUntilIdle(double timeoutSeconds) const {
    std::unique_lock lock(mutex_);
    auto limit = std::chrono::duration<double>(std::max(0.0, timeoutSeconds));
    return idle_.wait_for(lock, limit, [this] { return inFlight_ == 0; });
}

} // namespace bvgeo
