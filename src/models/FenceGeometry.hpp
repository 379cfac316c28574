// FenceGeometry: the polygons of one polygon fence (a GeoJSON Polygon or
// MultiPolygon, longitude first) with what it takes to answer containment fast: a
// bounding box per polygon and, for polygons of many edges, a grid of the edges
// with the inside/outside state of one reference point per cell. Built once, when
// a zone file or the fence table is read, checked on the way; immutable after, so
// any thread may query it.
//
// Containment: a position is inside when it lies inside one polygon's outer ring
// and inside none of that polygon's holes, edges being straight lines in
// longitude/latitude; a position on an edge is outside. Decided exactly (every
// side-of-line test is exact on the doubles given), so the answer is the same as
// an exact computational-geometry library's for the same coordinates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bvgeo {

// Polygons as read, before any check: longitude/latitude pairs in `xy`; ring i ends
// before position ringEnds[i] (positions counted, the closing one included);
// polygon p ends before ring polygonEnds[p]. The first ring of a polygon is its
// outer ring, the others its holes.
struct PolygonRings {
    std::vector<double> xy;
    std::vector<std::uint32_t> ringEnds;
    std::vector<std::uint32_t> polygonEnds;
    bool multi = false; // read as a MultiPolygon (written back as one)
};

class FenceGeometry;

// A geometry, or why there is none.
struct FenceGeometryResult {
    std::shared_ptr<const FenceGeometry> geometry;
    std::string problem;
};

class FenceGeometry {
public:
    // More positions than this in one geometry are refused before they are kept.
    static constexpr std::size_t kMaxPositions = 1'000'000;

    // Checks the rings (closed, at least four positions, coordinates on the earth,
    // no two edges of a polygon crossing, holes inside their outer ring and not
    // inside each other) and builds the indexes. Consecutive repeated positions are
    // dropped; winding is not relied on.
    static FenceGeometryResult make(PolygonRings rings);

    // Exact containment, as described above. Longitudes are taken modulo 360.
    bool contains(double latitude, double longitude) const;

    // Metres from the position to the nearest edge, negative inside and positive
    // outside (the sign from contains()), measured in a flat metric fitted at the
    // position: within a few millimetres per hundred metres of distance.
    double signedDistance(double latitude, double longitude) const;

    // Whether every position lies within `radius` metres (with 1% and 10 m of
    // slack) of the centre: the fence's circle is meant to enclose its geometry.
    bool withinCircle(double latitude, double longitude, double radius) const;

    // How the closed rectangle lies to the geometry: wholly outside, wholly inside,
    // or touched by an edge (or too close to one to say).
    enum class RectangleSide { Outside, Inside, Edge };
    RectangleSide rectangleSide(double west, double south, double east, double north) const;

    // The geometry as GeoJSON text; reading it back gives an equal geometry.
    std::string geoJson() const;

    double west() const;
    double south() const;
    double east() const;
    double north() const;
    std::size_t positionCount() const { return xy_.size() / 2; }
    std::size_t polygonCount() const { return polygons_.size(); }
    // Heap bytes held, the object included.
    std::size_t memoryBytes() const;

    // The rings, for drawing: for each polygon its rings, each a list of
    // [longitude, latitude] positions, closed.
    std::vector<std::vector<std::vector<std::pair<double, double>>>> polygons() const;

    bool operator==(const FenceGeometry& other) const;

    struct Polygon {
        std::uint32_t firstRing = 0, endRing = 0;
        // Edge grid, for a polygon of many edges (columns > 0): cell sizes rounded up
        // so the cells cover the box; the cells' starts from index_[firstCell].
        std::uint16_t columns = 0, rows = 0;
        std::uint32_t firstCell = 0;
        float cellWidth = 0, cellHeight = 0;
        double west = 0, south = 0, east = 0, north = 0;
    };

private:
    FenceGeometry() = default;

    struct RayAnswer {
        bool inside = false;
        bool onBoundary = false;
    };
    // Even-odd over every ring of the polygon, by a horizontal ray; exact.
    RayAnswer rayTest(const Polygon& polygon, double x, double y) const;
    RayAnswer ringRayTest(std::uint32_t ring, double x, double y) const;
    bool polygonContains(const Polygon& polygon, double x, double y) const;
    void referencePoint(const Polygon& polygon, std::uint32_t column, std::uint32_t row, unsigned shift, double& x,
                        double& y) const;
    // Edge grid and reference states; false with `problem` set when two edges cross.
    bool buildGrid(Polygon& polygon, std::string& problem, std::size_t& work);
    bool checkPolygon(const Polygon& polygon, std::string& problem, std::size_t& work) const;

    // Few allocations per geometry: GBFS zones and census tracts have some fifteen
    // positions each, so what a geometry costs besides them must stay small.
    std::vector<double> xy_;
    std::vector<std::uint32_t> ringStart_; // ring i is positions [ringStart_[i], ringStart_[i + 1])
    std::vector<Polygon> polygons_;
    // Per grid, its cells' starts (cell c's edges are index_[start(c) .. start(c + 1)),
    // its reference state in the top bits of its start), then those edges, each named
    // by its first position.
    std::vector<std::uint32_t> index_;
    // For a geometry of many polygons (a country and its islands): which polygons'
    // boxes reach each cell of a coarse grid over the whole box.
    struct PartGrid {
        double west = 0, south = 0;
        double cellWidth = 0, cellHeight = 0;
        std::uint32_t columns = 0, rows = 0;
        std::vector<std::uint32_t> start, parts;
    };
    std::unique_ptr<const PartGrid> partGrid_;
    bool multi_ = false;
};

} // namespace bvgeo
