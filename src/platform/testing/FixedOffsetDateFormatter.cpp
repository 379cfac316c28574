#include <bvgeo/testing/FixedOffsetDateFormatter.hpp>

#include <ctime>

namespace bvgeo::testing {

std::string FixedOffsetDateFormatter::format(double secondsSince1970, std::string_view pattern) const {
    const auto [seconds, millis] = splitMilliseconds(secondsSince1970);
    const auto shifted = static_cast<std::time_t>(seconds + offset_);
    std::tm fields{};
    if (!::gmtime_r(&shifted, &fields)) return {};
    return formatDatePattern(fields, millis, pattern);
}

} // namespace bvgeo::testing
