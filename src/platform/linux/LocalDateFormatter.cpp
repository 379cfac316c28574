#include <bvgeo/platform/linux/LocalDateFormatter.hpp>

#include <cmath>
#include <ctime>

namespace bvgeo {

// localtime_r need not consult TZ itself; tzset() once makes sure it was read.
LocalDateFormatter::LocalDateFormatter() { ::tzset(); }

std::string LocalDateFormatter::format(double secondsSince1970, std::string_view pattern) const {
    if (!std::isfinite(secondsSince1970)) secondsSince1970 = 0.0;
    // Rounded to whole milliseconds first, so .9996 becomes the next second, not ".1000".
    const auto totalMillis = static_cast<long long>(std::llround(secondsSince1970 * 1000.0));
    long long seconds = totalMillis / 1000;
    long long millis = totalMillis % 1000;
    if (millis < 0) {
        millis += 1000;
        --seconds;
    }
    const auto time = static_cast<std::time_t>(seconds);
    std::tm fields{};
    if (!::localtime_r(&time, &fields)) return {};
    return formatDatePattern(fields, static_cast<int>(millis), pattern);
}

} // namespace bvgeo
