// SystemClock: the wall clock of the machine. Stateless, so any thread may read it.
#pragma once

#include <bvgeo/platform/Clock.hpp>

namespace bvgeo {

class SystemClock final : public Clock {
public:
    double currentTime() const override;
};

} // namespace bvgeo
