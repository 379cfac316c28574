// LogCategory: the tag of each log row; its text value is what the category column holds.
#pragma once

#include <optional>
#include <string_view>

namespace bvgeo {

enum class LogCategory : int { NONE = 0, FENCE, ZONE, GENERAL, LOCATION, REQUESTS, TRIGGER, CLIENT };

std::string_view rawValue(LogCategory category);
// Exact match against the eight texts ("" is NONE); anything else gives no value.
std::optional<LogCategory> logCategoryFromRaw(std::string_view text);

} // namespace bvgeo
