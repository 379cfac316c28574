// FixedOffsetDateFormatter: date text in a time zone that is a fixed offset from UTC
// and never changes, whatever the machine's zone, so tests read the same text
// everywhere. Stateless after construction; any thread.
#pragma once

#include <bvgeo/platform/DateFormatter.hpp>
#include <bvgeo/Export.hpp>

namespace bvgeo::testing {

class BVGEO_API FixedOffsetDateFormatter final : public DateFormatter {
public:
    explicit FixedOffsetDateFormatter(int utcOffsetSeconds = 0) : offset_(utcOffsetSeconds) {}
    std::string format(double secondsSince1970, std::string_view pattern) const override;

private:
    const int offset_;
};

} // namespace bvgeo::testing
