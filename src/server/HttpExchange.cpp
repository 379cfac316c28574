#include "server/HttpExchange.hpp"

#include <algorithm>

namespace bvgeo {

namespace {

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::optional<std::string> findHeader(const HeaderList& headers, std::string_view name) {
    for (const auto& [key, value] : headers)
        if (equalsIgnoringCase(key, name)) return value;
    return std::nullopt;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string decodeQueryComponent(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '+') {
            out += ' ';
        } else if (c == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += c;
        }
    }
    return out;
}

} // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return lower(x) == lower(y);
           });
}

std::optional<std::string> queryParameter(std::string_view query, std::string_view name) {
    while (true) {
        const auto ampersand = query.find('&');
        const std::string_view pair = query.substr(0, ampersand);
        query.remove_prefix(ampersand == std::string_view::npos ? query.size() : ampersand + 1);
        const auto equals = pair.find('=');
        if (decodeQueryComponent(pair.substr(0, equals)) == name)
            return equals == std::string_view::npos ? std::string() : decodeQueryComponent(pair.substr(equals + 1));
        if (ampersand == std::string_view::npos) return std::nullopt;
    }
}

std::optional<std::string> ServerRequest::header(std::string_view name) const { return findHeader(headers, name); }
std::optional<std::string> ServerResponse::header(std::string_view name) const { return findHeader(headers, name); }

ServerResponse jsonResponse(int status, const nlohmann::json& body) {
    ServerResponse response;
    response.status = status;
    response.contentType = "application/json";
    response.body = body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return response;
}

} // namespace bvgeo
