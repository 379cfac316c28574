#include <bvgeo/platform/DateFormatter.hpp>

#include <algorithm>
#include <cmath>
#include <ctime>

namespace bvgeo {

namespace {

void appendNumber(std::string& out, long value, int width) {
    std::string digits = std::to_string(value < 0 ? -value : value);
    if (value < 0) out += '-';
    if (static_cast<int>(digits.size()) < width) out.append(width - digits.size(), '0');
    out += digits;
}

} // namespace

std::string formatDatePattern(const std::tm& fields, int millis, std::string_view pattern) {
    std::string out;
    out.reserve(pattern.size() + 8);
    const long year = static_cast<long>(fields.tm_year) + 1900;
    std::size_t i = 0;
    auto startsWith = [&](std::string_view field) { return pattern.substr(i, field.size()) == field; };

    while (i < pattern.size()) {
        char c = pattern[i];
        if (c == '\'') {
            if (i + 1 < pattern.size() && pattern[i + 1] == '\'') { // '' outside quotes
                out += '\'';
                i += 2;
                continue;
            }
            // Quoted text runs to the next lone quote (or the end); '' inside it is a quote.
            ++i;
            while (i < pattern.size()) {
                if (pattern[i] == '\'') {
                    if (i + 1 < pattern.size() && pattern[i + 1] == '\'') {
                        out += '\'';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                out += pattern[i++];
            }
            continue;
        }
        if (startsWith("yyyy")) {
            appendNumber(out, year, 4);
            i += 4;
        } else if (startsWith("yy")) {
            appendNumber(out, ((year % 100) + 100) % 100, 2);
            i += 2;
        } else if (startsWith("MM")) {
            appendNumber(out, fields.tm_mon + 1, 2);
            i += 2;
        } else if (startsWith("dd")) {
            appendNumber(out, fields.tm_mday, 2);
            i += 2;
        } else if (startsWith("HH")) {
            appendNumber(out, fields.tm_hour, 2);
            i += 2;
        } else if (startsWith("mm")) {
            appendNumber(out, fields.tm_min, 2);
            i += 2;
        } else if (startsWith("ss")) {
            appendNumber(out, fields.tm_sec, 2);
            i += 2;
        } else if (startsWith("SSS")) {
            appendNumber(out, std::clamp(millis, 0, 999), 3);
            i += 3;
        } else {
            out += c;
            ++i;
        }
    }
    return out;
}

SecondsAndMillis splitMilliseconds(double secondsSince1970) {
    if (!std::isfinite(secondsSince1970)) secondsSince1970 = 0.0;
    const auto totalMillis = static_cast<long long>(std::llround(secondsSince1970 * 1000.0));
    SecondsAndMillis split{totalMillis / 1000, static_cast<int>(totalMillis % 1000)};
    if (split.millis < 0) {
        split.millis += 1000;
        --split.seconds;
    }
    return split;
}

} // namespace bvgeo
