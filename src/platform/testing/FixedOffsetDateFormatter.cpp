#include <bvgeo/platform/testing/FixedOffsetDateFormatter.hpp>

#include <cmath>
#include <ctime>

namespace bvgeo::testing {

std::string FixedOffsetDateFormatter::format(double secondsSince1970, std::string_view pattern) const {
    if (!std::isfinite(secondsSince1970)) secondsSince1970 = 0.0;
    // Whole milliseconds first, so .9996 rolls into the next second.
    const auto totalMillis = static_cast<long long>(std::llround(secondsSince1970 * 1000.0));
    long long seconds = totalMillis / 1000;
    long long millis = totalMillis % 1000;
    if (millis < 0) {
        millis += 1000;
        --seconds;
    }
    const auto shifted = static_cast<std::time_t>(seconds + offset_);
    std::tm fields{};
    if (!::gmtime_r(&shifted, &fields)) return {};
    return formatDatePattern(fields, static_cast<int>(millis), pattern);
}

} // namespace bvgeo::testing
