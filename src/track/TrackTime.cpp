#include "track/TrackTime.hpp"

#include "track/TrackText.hpp"

namespace bvgeo {
namespace {

constexpr double kSecondsPerDay = 86400.0;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Exactly `count` digits at `pos`, advancing past them.
std::optional<int> takeDigits(std::string_view text, std::size_t& pos, std::size_t count) {
    if (pos + count > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const char c = text[pos + i];
        if (!isDigit(c)) return std::nullopt;
        value = value * 10 + (c - '0');
    }
    pos += count;
    return value;
}

bool take(std::string_view text, std::size_t& pos, char expected) {
    if (pos >= text.size() || text[pos] != expected) return false;
    ++pos;
    return true;
}

// ".fff..." after whole seconds; absent is zero. Digits only, at least one.
std::optional<double> takeFraction(std::string_view text, std::size_t& pos) {
    if (pos >= text.size() || text[pos] != '.') return 0.0;
    ++pos;
    double value = 0.0, scale = 0.1;
    const std::size_t start = pos;
    while (pos < text.size() && isDigit(text[pos])) {
        value += (text[pos] - '0') * scale;
        scale /= 10.0;
        ++pos;
    }
    if (pos == start) return std::nullopt;
    return value;
}

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// hh:mm:ss (seconds may be 60, a leap second) into seconds of the day.
std::optional<double> takeClock(std::string_view text, std::size_t& pos, bool colons) {
    const auto hour = takeDigits(text, pos, 2);
    if (!hour || (colons && !take(text, pos, ':'))) return std::nullopt;
    const auto minute = takeDigits(text, pos, 2);
    if (!minute || (colons && !take(text, pos, ':'))) return std::nullopt;
    const auto second = takeDigits(text, pos, 2);
    if (!second) return std::nullopt;
    const auto fraction = takeFraction(text, pos);
    if (!fraction || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
    return *hour * 3600.0 + *minute * 60.0 + *second + *fraction;
}

} // namespace

std::int64_t daysFromCivil(int year, int month, int day) {
    // Counts from 1 March so the leap day falls at the end of the counted year.
    const std::int64_t y = static_cast<std::int64_t>(year) - (month <= 2 ? 1 : 0);
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const std::int64_t yearOfEra = y - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool isValidDate(int year, int month, int day) {
    static constexpr int kDaysInMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12 || day < 1) return false;
    const int last = kDaysInMonth[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
    return day <= last;
}

std::optional<std::int64_t> parseIsoDate(std::string_view text) {
    std::size_t pos = 0;
    const auto year = takeDigits(text, pos, 4);
    if (!year || !take(text, pos, '-')) return std::nullopt;
    const auto month = takeDigits(text, pos, 2);
    if (!month || !take(text, pos, '-')) return std::nullopt;
    const auto day = takeDigits(text, pos, 2);
    if (!day || pos != text.size() || !isValidDate(*year, *month, *day)) return std::nullopt;
    return daysFromCivil(*year, *month, *day);
}

std::optional<double> parseIsoDateTime(std::string_view text) {
    text = trim(text);
    if (text.size() < 19) return std::nullopt;
    const auto days = parseIsoDate(text.substr(0, 10));
    const char separator = text[10];
    if (!days || (separator != 'T' && separator != 't' && separator != ' ')) return std::nullopt;

    std::size_t pos = 11;
    const auto clock = takeClock(text, pos, true);
    if (!clock) return std::nullopt;

    double offset = 0.0;
    if (pos < text.size()) {
        const char zone = text[pos++];
        if (zone == 'Z' || zone == 'z') {
            // UTC
        } else if (zone == '+' || zone == '-') {
            const auto hours = takeDigits(text, pos, 2);
            if (!hours || *hours > 23) return std::nullopt;
            int minutes = 0;
            if (pos < text.size()) {
                take(text, pos, ':');
                const auto m = takeDigits(text, pos, 2);
                if (!m || *m > 59) return std::nullopt;
                minutes = *m;
            }
            offset = (*hours * 60 + minutes) * 60.0 * (zone == '-' ? -1 : 1);
        } else {
            return std::nullopt;
        }
    }
    if (pos != text.size()) return std::nullopt;
    // A local time east of Greenwich is ahead of UTC, so the offset comes off.
    return static_cast<double>(*days) * kSecondsPerDay + *clock - offset;
}

std::optional<double> parseTimeOfDay(std::string_view text) {
    std::size_t pos = 0;
    const auto clock = takeClock(text, pos, false);
    if (!clock || pos != text.size()) return std::nullopt;
    return clock;
}

} // namespace bvgeo
