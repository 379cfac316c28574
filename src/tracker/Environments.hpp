// The built-in base URLs of the four environments. The hosts are placeholders under
// the reserved ".example" domain; a deployment replaces them through
// BVGeoTracker::setEnvironmentURLs before configure.
#pragma once

#include <bvgeo/BVGeoTracker.hpp>

namespace bvgeo {

EnvironmentURLs defaultEnvironmentURLs(BVEnvironment environment);

} // namespace bvgeo
