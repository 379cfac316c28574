// SystemClock: the wall clock of the machine. Stateless, so any thread may read it.
#pragma once

#include <bvgeo/platform/Clock.hpp>
#include <bvgeo/Export.hpp>

namespace bvgeo {

class BVGEO_API SystemClock final : public Clock {
public:
    double currentTime() const override;
};

} // namespace bvgeo
