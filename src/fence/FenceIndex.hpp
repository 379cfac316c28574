// FenceIndex: a spatial index over one fence list, built once when the list is
// obtained, so that finding the fences around a position does not scan the list.
// Candidates come from a grid over the fences' bounding boxes; each is then decided
// exactly: a position is inside when its geodesic distance to the centre is
// strictly less than the radius, or, for a polygon fence (one with a geometry),
// when its geometry contains it; a polygon fence is placed in the grid by its
// geometry's box. Immutable after construction: any thread may query.
#pragma once

#include "models/Fence.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace bvgeo {

using FenceList = std::vector<std::shared_ptr<Fence>>;

// The exact containment rule: geodesic distance from the position to the centre
// strictly less than the radius (a position on the rim is outside); for a polygon
// fence, its geometry's rule (a position on an edge is outside).
bool isLocationInsideFence(double latitude, double longitude, const Fence& fence);

class FenceIndex {
public:
    explicit FenceIndex(FenceList fences);

    // The fences that contain the position, in the order of the list.
    FenceList insideFences(double latitude, double longitude) const;

    // The fences that contain the position or whose rim lies less than `margin`
    // metres from it (signedDistanceToRim below `margin`), in the order of the list.
    // Looks at the grid cells within `margin`; meant for margins of tens of metres.
    FenceList fencesNear(double latitude, double longitude, double margin) const;

    const FenceList& fences() const { return fences_; }

private:
    // Bounds from a flat metric fitted at the centre; valid over the fence's box,
    // which never crosses the antimeridian or comes near a pole. For a polygon fence
    // (both scales zero) it holds the geometry's box instead: south and west, and the
    // spans of latitude and longitude (rounded up) in insideBelow and outsideFrom.
    struct alignas(32) LocalDisc {
        double latitude = 0.0;
        double longitude = 0.0; // in [-180, 180)
        float metresPerDegreeLatitude = 0.0f;
        float metresPerDegreeLongitude = 0.0f;
        float insideBelow = -1.0f; // squared flat distance under which the position is surely inside
        float outsideFrom = 0.0f;  // squared flat distance from which it is surely outside
    };
    // Bounds from a sphere, valid anywhere: for fences kept out of the grid.
    struct SphereDisc {
        std::uint32_t index = 0;
        double x = 0.0, y = 0.0, z = 0.0;
        double insideBelow = -1.0; // squared chord
        double outsideFrom = 0.0;
        // A polygon fence's box (south, west, north, east); west > east for a circle.
        double box[4] = {0.0, 1.0, 0.0, -1.0};
    };
    struct CellSlot {
        std::uint64_t key = 0;
        std::uint32_t begin = 0;
        std::uint32_t end = 0;
    };

    bool containsLocal(std::uint32_t index, double latitude, double longitude) const;
    bool containsSphere(const SphereDisc& disc, const double (&unit)[3], double latitude, double longitude) const;
    const CellSlot* findCell(std::uint64_t key) const;

    FenceList fences_;
    double cellDegrees_ = 0.01;
    std::uint64_t columns_ = 0;
    std::vector<LocalDisc> local_;       // parallel to fences_; used for gridded fences only
    // Cells of a compact area: grid_[i] and grid_[i + 1] bound cell i's entries, the
    // cells counted row by row from (gridRow_, gridColumn_). Empty for a wide area,
    // whose cells are found through cells_ instead.
    std::vector<std::uint32_t> grid_;
    std::int64_t gridRow_ = 0, gridColumn_ = 0;
    std::uint64_t gridWidth_ = 0, gridHeight_ = 0;
    std::vector<CellSlot> cells_;        // open addressing, power-of-two size, key ~0 marks empty
    std::vector<std::uint32_t> entries_; // per cell: (index << 1) | surelyInsideWholeCell, ascending
    std::vector<SphereDisc> everywhere_; // fences too large or awkward for the grid, ascending index
    bool everywhereCircles_ = false;     // some of them are circles (polygons need no unit vector)
};

} // namespace bvgeo
