// HTTPResponse: what came back for one request: status code, header fields in the
// order received, and the URL that answered. A status code of 0 means no HTTP answer
// arrived at all (the failure callback of a transport error gets such an empty one).
#pragma once

#include "request/URLRequest.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

struct HTTPResponse {
    long statusCode = 0;
    HeaderFields headerFields;
    std::string url;

    bool empty() const { return statusCode == 0; }
    std::optional<std::string> value(std::string_view name) const { return headerValue(headerFields, name); }

    bool operator==(const HTTPResponse&) const = default;
};

} // namespace bvgeo
