#include "request/HTTPMethod.hpp"

#include <array>

namespace bvgeo {

namespace {
// Indexed by the enum's value.
constexpr std::array<std::string_view, 4> kTexts = {"GET", "POST", "PUT", "DELETE"};
} // namespace

std::string_view rawValue(HTTPMethod method) {
    auto index = static_cast<std::size_t>(method);
    return index < kTexts.size() ? kTexts[index] : std::string_view();
}

std::optional<HTTPMethod> httpMethodFromRaw(std::string_view text) {
    for (std::size_t i = 0; i < kTexts.size(); ++i)
        if (kTexts[i] == text) return static_cast<HTTPMethod>(i);
    return std::nullopt;
}

} // namespace bvgeo
