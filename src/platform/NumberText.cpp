#include "platform/NumberText.hpp"

#include <charconv>
#include <cmath>

namespace bvgeo {

std::string doubleText(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";

    // 2^53: from here on not every integer is representable, so whole-number text
    // would suggest a precision the value does not have.
    constexpr double kExponentFrom = 9007199254740992.0;
    const double magnitude = std::fabs(value);
    const bool exponent = magnitude != 0.0 && (magnitude < 1e-4 || magnitude >= kExponentFrom);

    char buffer[64];
    auto format = exponent ? std::chars_format::scientific : std::chars_format::fixed;
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value, format);
    if (error != std::errc()) return "nan"; // cannot happen with this buffer size
    std::string text(buffer, end);
    if (!exponent && text.find('.') == std::string::npos) text += ".0";
    return text;
}

} // namespace bvgeo
