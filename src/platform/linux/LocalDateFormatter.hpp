// LocalDateFormatter: date text in the process's time zone (TZ, else the system's),
// read once at construction. Stateless afterwards, so any thread may format.
#pragma once

#include <bvgeo/platform/DateFormatter.hpp>

namespace bvgeo {

class LocalDateFormatter final : public DateFormatter {
public:
    LocalDateFormatter();
    std::string format(double secondsSince1970, std::string_view pattern) const override;
};

} // namespace bvgeo
