// HTTPClient: the library's one JSON-over-HTTP client. It builds requests and sends
// them through its transport thread (made on first use, stopped and joined when the
// client goes away). Every success and failure callback runs on that thread, one at
// a time; none is ever called from inside the call that started the request.
//
// All operations may be called from any thread. Callers must not destroy the client
// (reset the shared instances) from inside one of its callbacks. Nothing throws.
#pragma once

#include "request/CurlTransport.hpp"
#include "request/HTTPError.hpp"
#include "request/HTTPMethod.hpp"
#include "request/HTTPResponse.hpp"
#include "request/URLRequest.hpp"

#include <nlohmann/json.hpp>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace bvgeo {

class HTTPClient {
public:
    using Success = std::function<void(const nlohmann::json& responseData, const HTTPResponse& response)>;
    using Failure = std::function<void(const HTTPResponse& response, const HTTPError& error)>;
    // Takes an answer's JSON event by event while it is decoded.
    using JsonReader = nlohmann::json_sax<nlohmann::json>;
    using StreamSuccess = std::function<void(const HTTPResponse& response)>;

    static constexpr double kDefaultRequestTimeout = 30.0;
    static constexpr std::size_t kDefaultMaxResponseBytes = 64u * 1024u * 1024u;

    static HTTPClient& sharedInstance();

    // `parameters` become the JSON body (with JSON Content-Type and Accept fields);
    // each text entry of `headers` is then added to the fields, in the object's order.
    URLRequest request(const std::string& url, HTTPMethod method, const std::optional<nlohmann::json>& parameters,
                       const std::optional<nlohmann::json>& headers) const;

    void performTask(URLRequest request, Success success, Failure failure);
    void performRequest(const URLRequest& request, Success success, Failure failure);

    void get(const std::string& url, const std::optional<nlohmann::json>& headers, Success success, Failure failure);
    void post(const std::string& url, const std::optional<nlohmann::json>& parameters,
              const std::optional<nlohmann::json>& headers, Success success, Failure failure);
    void put(const std::string& url, const std::optional<nlohmann::json>& parameters,
             const std::optional<nlohmann::json>& headers, Success success, Failure failure);
    void del(const std::string& url, const std::optional<nlohmann::json>& headers, Success success, Failure failure);

    // get() for answers too large to hold as a document: the body's JSON goes to
    // `reader` while it is decoded, and the body itself is let go before the
    // callbacks run. `success` or `failure` follows exactly as get() would choose,
    // with the same console lines; the reader sees every body, broken ones too, and
    // what it made of one that ends in `failure` means nothing. The reader lives
    // until the callbacks have returned.
    void getStreamed(const std::string& url, const std::optional<nlohmann::json>& headers,
                     std::shared_ptr<JsonReader> reader, StreamSuccess success, Failure failure);

    // getStreamed() for a caller that keeps the body too (a cache of zone files):
    // `success` gets it as it came, and it is not let go before.
    using StreamBodySuccess = std::function<void(const HTTPResponse& response, std::string body)>;
    void getStreamedKeepingBody(const std::string& url, const std::optional<nlohmann::json>& headers,
                                std::shared_ptr<JsonReader> reader, StreamBodySuccess success, Failure failure);

    // While `down` answers true, each request started fails at once, on the
    // transport thread, as a request on a device without a network does: a
    // transport error ("Couldn't connect to server"). Replays of dead spots set it;
    // an empty function (the default) lets every request go out.
    void setNetworkDown(std::function<bool()> down);

    // A fresh copy of `data` made by encoding and decoding it; an empty object when
    // that fails.
    static nlohmann::json parseResponse(const nlohmann::json& data);

    // Applies to requests started afterwards. Non-positive or non-finite values
    // restore the default.
    void setRequestTimeout(double seconds);
    double requestTimeout() const;
    // Answers with a larger body fail instead of being held in memory.
    void setMaxResponseBytes(std::size_t bytes);

    // Requests started whose callbacks have not yet returned.
    std::size_t inFlight() const;
    // Requests started since the client was made; two equal readings tell a caller
    // that nothing was sent in between.
    std::uint64_t requestsStarted() const;
    // Blocks until no request is in flight or `timeoutSeconds` of real time passed;
    // true when none is.
    bool waitUntilIdle(double timeoutSeconds) const;

    HTTPClient(const HTTPClient&) = delete;
    HTTPClient& operator=(const HTTPClient&) = delete;
    ~HTTPClient();

private:
    HTTPClient();

    CurlTransport* transport();
    void submit(URLRequest request, CurlTransport::Completion handle, const Failure& failure);
    void complete(CurlTransport::Result& result, const Success& success, const Failure& failure);
    void completeStreamed(CurlTransport::Result& result, JsonReader* reader, const StreamSuccess& success,
                          const Failure& failure, std::string* keptBody = nullptr);
    void finishOne();

    std::atomic<double> timeout_{kDefaultRequestTimeout};
    std::atomic<std::size_t> maxResponseBytes_{kDefaultMaxResponseBytes};

    mutable std::mutex mutex_; // guards inFlight_ and transport_ creation
    mutable std::condition_variable idle_;
    std::size_t inFlight_ = 0;
    std::uint64_t started_ = 0;
    std::unique_ptr<CurlTransport> transport_;
    std::shared_ptr<const std::function<bool()>> networkDown_; // guarded by mutex_
};

} // namespace bvgeo
