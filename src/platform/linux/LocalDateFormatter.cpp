#include "platform/linux/LocalDateFormatter.hpp"

#include <ctime>

namespace bvgeo {

// localtime_r need not consult TZ itself; tzset() once makes sure it was read.
LocalDateFormatter::LocalDateFormatter() { ::tzset(); }

std::string LocalDateFormatter::format(double secondsSince1970, std::string_view pattern) const {
    const auto [seconds, millis] = splitMilliseconds(secondsSince1970);
    const auto time = static_cast<std::time_t>(seconds);
    std::tm fields{};
    if (!::localtime_r(&time, &fields)) return {};
    return formatDatePattern(fields, millis, pattern);
}

} // namespace bvgeo
