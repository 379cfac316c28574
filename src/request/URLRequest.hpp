// URLRequest: one HTTP request as the library describes it before sending: URL text,
// method, header fields in the order they were added, optional body. A plain value,
// copied freely between the request queue and the transport thread.
//
// Header names match case-insensitively, as in HTTP; adding a value to a name that
// is already there joins the values with ", " in the existing field, which is how
// HTTP folds a repeated field.
#pragma once

#include "request/HTTPMethod.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bvgeo {

// ASCII case-insensitive comparison of header names.
inline bool headerNameEquals(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; };
        return lower(x) == lower(y);
    });
}

using HeaderFields = std::vector<std::pair<std::string, std::string>>;

// The value of the first field called `name`, if any.
inline std::optional<std::string> headerValue(const HeaderFields& fields, std::string_view name) {
    for (const auto& [fieldName, value] : fields)
        if (headerNameEquals(fieldName, name)) return value;
    return std::nullopt;
}

struct URLRequest {
    std::string url;
    HTTPMethod method = HTTPMethod::GET;
    HeaderFields headers;
    std::optional<std::string> body; // raw bytes

    URLRequest() = default;
    explicit URLRequest(std::string url, HTTPMethod method = HTTPMethod::GET)
        : url(std::move(url)), method(method) {}

    void add(std::string_view name, std::string_view value) {
        for (auto& [fieldName, existing] : headers) {
            if (headerNameEquals(fieldName, name)) {
                existing.append(", ").append(value);
                return;
            }
        }
        headers.emplace_back(std::string(name), std::string(value));
    }

    std::optional<std::string> value(std::string_view name) const { return headerValue(headers, name); }

    bool operator==(const URLRequest&) const = default;
};

} // namespace bvgeo
