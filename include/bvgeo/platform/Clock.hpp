// Clock: the library's only source of "now". Every time stamp and every rule that
// depends on elapsed time reads it, so a test or a replay can substitute its own.
// Implementations must be safe to call from any thread.
#pragma once

#include <bvgeo/Export.hpp>

#include <cmath>
#include <cstdint>

namespace bvgeo {

class BVGEO_API Clock {
public:
    virtual ~Clock() = default;

    // Seconds since 1970-01-01 UTC, with fraction.
    virtual double currentTime() const = 0;

    // Whole seconds since 1970-01-01 UTC, fraction dropped.
    std::int64_t now() const { return static_cast<std::int64_t>(std::trunc(currentTime())); }
};

} // namespace bvgeo
