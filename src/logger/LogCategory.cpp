#include "logger/LogCategory.hpp"

#include <array>

namespace bvgeo {

namespace {
// Indexed by the enum's value; these texts are what the category column holds.
constexpr std::array<std::string_view, 8> kTexts = {"",         "FENCE",    "ZONE",    "GENERAL",
                                                    "LOCATION", "REQUESTS", "TRIGGER", "CLIENT"};
} // namespace

std::string_view rawValue(LogCategory category) {
    auto index = static_cast<std::size_t>(category);
    return index < kTexts.size() ? kTexts[index] : std::string_view();
}

std::optional<LogCategory> logCategoryFromRaw(std::string_view text) {
    for (std::size_t i = 0; i < kTexts.size(); ++i)
        if (kTexts[i] == text) return static_cast<LogCategory>(i);
    return std::nullopt;
}

} // namespace bvgeo
