#include "tracker/UrlText.hpp"

#include <algorithm>

namespace bvgeo {

namespace {
bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}
} // namespace

std::string percentEncodePathSegment(std::string_view text) {
    static const char kHex[] = "0123456789ABCDEF";
    const bool dotsOnly = !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c == '.'; });
    std::string out;
    out.reserve(text.size());
    for (unsigned char c : text) {
        if (isUnreserved(c) && !(dotsOnly && c == '.')) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
        }
    }
    return out;
}

std::optional<std::string> baseUrlProblem(std::string_view url) {
    std::string_view rest;
    if (url.rfind("http://", 0) == 0) rest = url.substr(7);
    else if (url.rfind("https://", 0) == 0) rest = url.substr(8);
    else return "does not start with http:// or https://";
    const auto hostEnd = rest.find_first_of("/?#");
    if (hostEnd == 0 || rest.empty()) return "names no host";
    if (url.find_first_of(" \t\r\n?#") != std::string_view::npos) return "holds a space, a query or a fragment";
    if (url.back() != '/') return "does not end in \"/\" (the app id is appended to it)";
    return std::nullopt;
}

} // namespace bvgeo
