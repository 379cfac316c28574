// Small text helpers shared by the track readers. They work on views into the
// caller's buffer and never allocate, which keeps a 100,000-line file cheap.
// Pure functions; any thread.
#pragma once

#include "platform/TextTrim.hpp"

#include <optional>
#include <string_view>

namespace bvgeo {

// A plain decimal number ("51.3767", "-0.5", "+3", "1e3") filling the whole text.
// Locale-independent; "nan", "inf" and hexadecimal are refused.
std::optional<double> parseDecimal(std::string_view text);

// A quality figure as a file writes it (accuracy in metres, HDOP): a positive,
// finite number, or -1 ("unknown") for anything else, zero included.
double positiveOrUnknown(std::string_view text);
// A speed: zero or more, or -1 ("unknown").
double nonNegativeOrUnknown(std::string_view text);

// ASCII case-insensitive comparison.
bool equalsIgnoreCase(std::string_view a, std::string_view b);

} // namespace bvgeo
