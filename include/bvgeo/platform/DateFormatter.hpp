// Local date-time text. Patterns use the letters yyyy, yy, MM, dd, HH, mm, ss and
// SSS (milliseconds); text between single quotes is copied as it is, and any other
// character stands for itself. Thread-safe.
#pragma once

#include <bvgeo/Export.hpp>

#include <ctime>
#include <string>
#include <string_view>

namespace bvgeo {

class BVGEO_API DateFormatter {
public:
    virtual ~DateFormatter() = default;

    // `secondsSince1970` in the device's current time zone, formatted by `pattern`.
    virtual std::string format(double secondsSince1970, std::string_view pattern) const = 0;
};

// Expands `pattern` for the broken-down time `fields` (as from localtime_r) and the
// millisecond part `millis`. Shared by every formatter so they agree on the letters.
BVGEO_API std::string formatDatePattern(const std::tm& fields, int millis, std::string_view pattern);

// A time as whole seconds and milliseconds, rounded to the millisecond first so that
// .9996 rolls into the next second rather than reading ".1000". Non-finite is 0.
struct SecondsAndMillis {
    long long seconds = 0;
    int millis = 0; // 0 to 999, also before 1970
};
BVGEO_API SecondsAndMillis splitMilliseconds(double secondsSince1970);

} // namespace bvgeo
