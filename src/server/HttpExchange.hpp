// HttpExchange: one HTTP request and its answer as plain values, for handlers that
// are functions from request to response (the reference server, the debug
// console) and so can be tested without a socket. Plain data; safe to copy
// between threads.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bvgeo {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

struct ServerRequest {
    std::string method;
    std::string path;  // percent-decoded, without the query
    std::string query; // the raw text after '?', still percent-encoded
    HeaderList headers;
    std::string body;

    // Case-insensitive, as HTTP header names are; the first match wins.
    std::optional<std::string> header(std::string_view name) const;
};

struct ServerResponse {
    int status = 200;
    std::string contentType; // empty when the answer has no body (304, 503)
    HeaderList headers;      // besides Content-Type
    std::string body;

    std::optional<std::string> header(std::string_view name) const;
};

bool equalsIgnoringCase(std::string_view a, std::string_view b);

// An answer with `body` as JSON text. Text that is not UTF-8 (a path, a log line)
// shows as U+FFFD rather than failing the answer.
ServerResponse jsonResponse(int status, const nlohmann::json& body);

// The decoded value of the first `name` parameter of a raw query text ("+" and
// %XX decoded); empty text for a bare name, nothing when it is absent.
std::optional<std::string> queryParameter(std::string_view query, std::string_view name);

} // namespace bvgeo
