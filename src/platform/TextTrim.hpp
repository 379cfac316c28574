// Trimming text at both ends, for the readers of headers, CSV fields and track
// lines. A pure function on views into the caller's buffer; any thread.
#pragma once

#include <string_view>

namespace bvgeo {

inline constexpr std::string_view kWhitespace = " \t\r\n";
inline constexpr std::string_view kSpacesAndTabs = " \t";

// `text` without the leading and trailing characters found in `blanks`.
constexpr std::string_view trim(std::string_view text, std::string_view blanks = kWhitespace) {
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

} // namespace bvgeo
