// How far a position lies from a fence's rim: the one geometric question the
// robust trigger rules ask of a fence, so that any fence shape can answer it.
// Pure functions; any thread.
#pragma once

#include "models/Fence.hpp"

namespace bvgeo {

// Metres from the position to the fence's rim (the nearest edge of its geometry
// when it has one): negative inside, positive outside.
// Its sign always agrees with isLocationInsideFence (a position on the rim is 0,
// outside). Good to a few millimetres for fences up to a few kilometres, to the
// geodesic's own precision beyond. A fence that can contain nothing (no usable
// centre or radius), or a position off the earth, is +infinity away.
double signedDistanceToRim(const Fence& fence, double latitude, double longitude);

} // namespace bvgeo
