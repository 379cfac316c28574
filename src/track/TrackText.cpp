#include "track/TrackText.hpp"

#include <charconv>
#include <cmath>

namespace bvgeo {

std::optional<double> parseDecimal(std::string_view text) {
    // from_chars takes a minus sign but not a plus sign.
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    const char first = text[0] == '-' && text.size() > 1 ? text[1] : text[0];
    if (first != '.' && (first < '0' || first > '9')) return std::nullopt; // refuses nan/inf
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

double positiveOrUnknown(std::string_view text) {
    const auto value = parseDecimal(trim(text));
    return value && *value > 0.0 && std::isfinite(*value) ? *value : -1.0;
}

double nonNegativeOrUnknown(std::string_view text) {
    const auto value = parseDecimal(trim(text));
    return value && *value >= 0.0 && std::isfinite(*value) ? *value : -1.0;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

} // namespace bvgeo
