#include "models/FenceGeometry.hpp"

#include "platform/NumberText.hpp"
#include "platform/Orientation.hpp"
#include "platform/Wgs84.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

// How containment stays exact: every decision is a sign of an exact orientation, and
// the only shortcut is the cell grid of a large polygon. Each cell of it lists every
// edge that comes near the cell, and knows whether one reference point R inside it
// is inside the polygon. A position P in the cell is then inside exactly when R is
// and the segment PR crosses the edges an even number of times. Crossings are
// counted as if PR were pushed an infinitesimal distance to its right, which makes a
// path through a vertex or along an edge count correctly; P and R are never on an
// edge (P is checked first; R is chosen off the edges when the grid is built).

namespace bvgeo {
namespace {

// Polygons with fewer edges are decided by a plain ray over all of them.
constexpr std::size_t kGridMinEdges = 64;
// Edges per cell aimed at: fewer cells cost less memory, more cells fewer tests.
constexpr double kEdgesPerCell = 2.0;
constexpr std::uint32_t kMaxGridSide = 2048;
// Room in cell units for the rounding of a position's cell.
constexpr double kCellMargin = 1e-6;
// Reference point offsets from the cell centre, in cell units; 7 marks "none found".
constexpr double kShifts[7][2] = {{0, 0},         {0.25, 0.25},  {-0.25, 0.25}, {0.25, -0.25},
                                  {-0.25, -0.25}, {0.11, 0.37},  {-0.37, 0.11}};
constexpr unsigned kNoReference = 7;
// A cell's start in index_: the offset below, its state (inside bit, reference shift) above.
constexpr unsigned kStateShift = 28;
constexpr std::uint32_t kOffsetMask = (std::uint32_t{1} << kStateShift) - 1;
// Pair tests and ring walks allowed for the checks of one geometry.
constexpr std::size_t kMaxCheckWork = 400'000'000;
// Geometries of more polygons get a grid of their polygons' boxes.
constexpr std::size_t kPolygonsForPartGrid = 16;

float floatAtLeast(double value) {
    const auto rounded = static_cast<float>(value);
    return static_cast<double>(rounded) >= value ? rounded : std::nextafter(rounded, INFINITY);
}

double flushTiny(double value) { return std::fabs(value) < 1e-100 ? 0.0 : value; }

double normalizedLongitude(double longitude) {
    const double reduced = std::remainder(longitude, 360.0);
    return reduced >= 180.0 ? reduced - 360.0 : reduced;
}

bool properlyCross(const double* a, const double* b, const double* c, const double* d) {
    if (std::max(a[0], b[0]) < std::min(c[0], d[0]) || std::max(c[0], d[0]) < std::min(a[0], b[0]) ||
        std::max(a[1], b[1]) < std::min(c[1], d[1]) || std::max(c[1], d[1]) < std::min(a[1], b[1]))
        return false;
    const int c1 = orientation(a[0], a[1], b[0], b[1], c[0], c[1]);
    const int c2 = orientation(a[0], a[1], b[0], b[1], d[0], d[1]);
    if (c1 * c2 >= 0) return false;
    const int c3 = orientation(c[0], c[1], d[0], d[1], a[0], a[1]);
    const int c4 = orientation(c[0], c[1], d[0], d[1], b[0], b[1]);
    return c3 * c4 < 0;
}

bool onSegment(const double* a, const double* b, double x, double y) {
    if (x < std::min(a[0], b[0]) || x > std::max(a[0], b[0]) || y < std::min(a[1], b[1]) || y > std::max(a[1], b[1]))
        return false;
    return orientation(a[0], a[1], b[0], b[1], x, y) == 0;
}

// Whether edge ab crosses segment pr, pr pushed infinitesimally to its right. Neither
// p nor r may lie on ab.
bool crossesPushed(const double* a, const double* b, double px, double py, double rx, double ry) {
    if (std::max(a[0], b[0]) < std::min(px, rx) || std::min(a[0], b[0]) > std::max(px, rx) ||
        std::max(a[1], b[1]) < std::min(py, ry) || std::min(a[1], b[1]) > std::max(py, ry))
        return false;
    const bool sideA = orientation(px, py, rx, ry, a[0], a[1]) >= 0;
    const bool sideB = orientation(px, py, rx, ry, b[0], b[1]) >= 0;
    if (sideA == sideB) return false;
    return (orientation(a[0], a[1], b[0], b[1], px, py) > 0) != (orientation(a[0], a[1], b[0], b[1], rx, ry) > 0);
}

std::string positionText(double x, double y) { return "[" + doubleText(x) + ", " + doubleText(y) + "]"; }

} // namespace

FenceGeometryResult FenceGeometry::make(PolygonRings in) {
    FenceGeometryResult result;
    auto fail = [&](std::string problem) {
        result.problem = std::move(problem);
        return std::move(result);
    };
    if (in.polygonEnds.empty()) return fail("has no polygon");
    if (in.xy.size() / 2 > kMaxPositions)
        return fail("has more than " + std::to_string(kMaxPositions) + " positions");
    std::shared_ptr<FenceGeometry> geometry(new FenceGeometry());
    FenceGeometry& g = *geometry;
    g.multi_ = in.multi;
    g.xy_.reserve(in.xy.size());
    std::uint32_t ring = 0, position = 0;
    for (std::size_t p = 0; p < in.polygonEnds.size(); ++p) {
        const std::uint32_t ringEnd = in.polygonEnds[p];
        if (ringEnd <= ring || ringEnd > in.ringEnds.size()) return fail("has a polygon without rings");
        Polygon polygon;
        polygon.firstRing = static_cast<std::uint32_t>(g.ringStart_.size());
        polygon.west = polygon.south = std::numeric_limits<double>::infinity();
        polygon.east = polygon.north = -std::numeric_limits<double>::infinity();
        for (; ring < ringEnd; ++ring) {
            const std::uint32_t end = in.ringEnds[ring];
            if (end < position || end > in.xy.size() / 2) return fail("has a malformed ring");
            const std::uint32_t count = end - position;
            const std::string label = "ring " + std::to_string(g.ringStart_.size() - polygon.firstRing) + " of polygon " +
                                      std::to_string(p);
            if (count < 4) return fail(label + " has " + std::to_string(count) + " positions, fewer than four");
            const double* first = &in.xy[2 * position];
            const double* last = &in.xy[2 * (end - 1)];
            for (std::uint32_t i = position; i < end; ++i) {
                const double x = in.xy[2 * i], y = in.xy[2 * i + 1];
                if (!std::isfinite(x) || !std::isfinite(y) || x < -180.0 || x > 180.0 || y < -90.0 || y > 90.0)
                    return fail(label + " has the position " + positionText(x, y) + ", not on the earth");
            }
            if (first[0] != last[0] || first[1] != last[1]) return fail(label + " is not closed");
            g.ringStart_.push_back(static_cast<std::uint32_t>(g.xy_.size() / 2));
            const std::size_t kept = g.xy_.size();
            for (std::uint32_t i = position; i < end; ++i) {
                const double x = flushTiny(in.xy[2 * i]), y = flushTiny(in.xy[2 * i + 1]);
                const std::size_t n = g.xy_.size();
                if (n > kept && g.xy_[n - 2] == x && g.xy_[n - 1] == y) continue; // repeated position
                g.xy_.push_back(x);
                g.xy_.push_back(y);
                polygon.west = std::min(polygon.west, x);
                polygon.east = std::max(polygon.east, x);
                polygon.south = std::min(polygon.south, y);
                polygon.north = std::max(polygon.north, y);
            }
            if ((g.xy_.size() - kept) / 2 < 4) return fail(label + " has fewer than three distinct positions");
            position = end;
        }
        polygon.endRing = static_cast<std::uint32_t>(g.ringStart_.size());
        g.polygons_.push_back(polygon);
    }
    g.ringStart_.push_back(static_cast<std::uint32_t>(g.xy_.size() / 2));
    g.xy_.shrink_to_fit();
    in = {};

    std::size_t work = 0;
    for (std::size_t p = 0; p < g.polygons_.size(); ++p) {
        Polygon& polygon = g.polygons_[p];
        std::string problem;
        if (!g.buildGrid(polygon, problem, work) || !g.checkPolygon(polygon, problem, work))
            return fail("polygon " + std::to_string(p) + " " + problem);
    }
    g.polygons_.shrink_to_fit();
    g.ringStart_.shrink_to_fit();
    g.index_.shrink_to_fit();
    if (g.polygons_.size() > kPolygonsForPartGrid) {
        auto grid = std::make_unique<PartGrid>();
        grid->west = g.west();
        grid->south = g.south();
        const double width = g.east() - grid->west, height = g.north() - grid->south;
        const auto side = static_cast<std::uint32_t>(std::ceil(std::sqrt(static_cast<double>(g.polygons_.size()))));
        grid->columns = width > 0 ? side : 1;
        grid->rows = height > 0 ? side : 1;
        grid->cellWidth = width > 0 ? width / grid->columns : 1.0;
        grid->cellHeight = height > 0 ? height / grid->rows : 1.0;
        const auto cellOf = [&](double value, double origin, double size, std::uint32_t count) {
            return static_cast<std::uint32_t>(std::clamp(std::floor((value - origin) / size), 0.0, double(count - 1)));
        };
        // Each polygon in every cell its box reaches, one cell more on each side for rounding.
        const auto forEach = [&](auto visit) {
            for (std::uint32_t p = 0; p < g.polygons_.size(); ++p) {
                const Polygon& polygon = g.polygons_[p];
                const std::uint32_t c0 = cellOf(polygon.west, grid->west, grid->cellWidth, grid->columns);
                const std::uint32_t c1 = cellOf(polygon.east, grid->west, grid->cellWidth, grid->columns);
                const std::uint32_t r0 = cellOf(polygon.south, grid->south, grid->cellHeight, grid->rows);
                const std::uint32_t r1 = cellOf(polygon.north, grid->south, grid->cellHeight, grid->rows);
                for (std::uint32_t r = r0 > 0 ? r0 - 1 : 0; r <= std::min(r1 + 1, grid->rows - 1); ++r)
                    for (std::uint32_t c = c0 > 0 ? c0 - 1 : 0; c <= std::min(c1 + 1, grid->columns - 1); ++c)
                        visit(std::size_t{r} * grid->columns + c, p);
            }
        };
        grid->start.assign(std::size_t{grid->columns} * grid->rows + 1, 0);
        forEach([&](std::size_t cell, std::uint32_t) { ++grid->start[cell + 1]; });
        for (std::size_t c = 1; c < grid->start.size(); ++c) grid->start[c] += grid->start[c - 1];
        grid->parts.resize(grid->start.back());
        std::vector<std::uint32_t> fill(grid->start.begin(), grid->start.end() - 1);
        forEach([&](std::size_t cell, std::uint32_t p) { grid->parts[fill[cell]++] = p; });
        g.partGrid_ = std::move(grid);
    }
    result.geometry = std::move(geometry);
    return result;
}

bool FenceGeometry::buildGrid(Polygon& polygon, std::string& problem, std::size_t& work) {
    std::size_t edgeCount = 0;
    for (std::uint32_t r = polygon.firstRing; r < polygon.endRing; ++r) edgeCount += ringStart_[r + 1] - ringStart_[r] - 1;
    const double width = polygon.east - polygon.west, height = polygon.north - polygon.south;
    if (edgeCount < kGridMinEdges || !(width > 0.0) || !(height > 0.0)) {
        // Few edges: every pair is tested.
        for (std::uint32_t r = polygon.firstRing; r < polygon.endRing; ++r)
            for (std::uint32_t i = ringStart_[r]; i + 1 < ringStart_[r + 1]; ++i)
                for (std::uint32_t s = r; s < polygon.endRing; ++s)
                    for (std::uint32_t j = s == r ? i + 1 : ringStart_[s]; j + 1 < ringStart_[s + 1]; ++j) {
                        if (++work > kMaxCheckWork) return problem = "is too intricate to check", false;
                        if (properlyCross(&xy_[2 * i], &xy_[2 * i + 2], &xy_[2 * j], &xy_[2 * j + 2]))
                            return problem = "has edges that cross at " + positionText(xy_[2 * i], xy_[2 * i + 1]), false;
                    }
        return true;
    }

    const double cells = std::max(1.0, static_cast<double>(edgeCount) / kEdgesPerCell);
    const double aspect = width / height;
    Polygon& grid = polygon;
    grid.columns = static_cast<std::uint16_t>(std::clamp(std::round(std::sqrt(cells * aspect)), 1.0, double(kMaxGridSide)));
    grid.rows = static_cast<std::uint16_t>(std::clamp(std::round(cells / grid.columns), 1.0, double(kMaxGridSide)));
    grid.cellWidth = floatAtLeast(width / grid.columns);
    grid.cellHeight = floatAtLeast(height / grid.rows);
    const std::uint32_t columns = grid.columns, rows = grid.rows;
    const std::size_t cellCount = std::size_t{columns} * rows;
    grid.firstCell = static_cast<std::uint32_t>(index_.size());

    // Every cell an edge comes near, in cell units with a margin for rounding.
    const auto forEachCell = [&](std::uint32_t e, auto visit) {
        const double u1 = (xy_[2 * e] - polygon.west) / grid.cellWidth, v1 = (xy_[2 * e + 1] - polygon.south) / grid.cellHeight;
        const double u2 = (xy_[2 * e + 2] - polygon.west) / grid.cellWidth, v2 = (xy_[2 * e + 3] - polygon.south) / grid.cellHeight;
        const auto clampIndex = [](double value, std::uint32_t size) {
            return static_cast<std::uint32_t>(std::clamp(std::floor(value), 0.0, double(size - 1)));
        };
        const std::uint32_t c0 = clampIndex(std::min(u1, u2) - kCellMargin, columns), c1 = clampIndex(std::max(u1, u2) + kCellMargin, columns);
        const std::uint32_t r0 = clampIndex(std::min(v1, v2) - kCellMargin, rows), r1 = clampIndex(std::max(v1, v2) + kCellMargin, rows);
        const bool few = (c1 - c0 + 1) * (r1 - r0 + 1) <= 2;
        const double du = u2 - u1, dv = v2 - v1, length = std::hypot(du, dv);
        for (std::uint32_t row = r0; row <= r1; ++row)
            for (std::uint32_t column = c0; column <= c1; ++column) {
                if (!few) {
                    const double cu = column + 0.5 - u1, cv = row + 0.5 - v1;
                    if (std::fabs(du * cv - dv * cu) > (0.7072 + kCellMargin) * length) continue;
                }
                visit(std::size_t{row} * columns + column);
            }
    };
    std::vector<std::uint32_t> start(cellCount + 1, 0);
    for (std::uint32_t r = polygon.firstRing; r < polygon.endRing; ++r)
        for (std::uint32_t e = ringStart_[r]; e + 1 < ringStart_[r + 1]; ++e)
            forEachCell(e, [&](std::size_t cell) { ++start[cell + 1]; });
    for (std::size_t c = 1; c <= cellCount; ++c) start[c] += start[c - 1];
    const std::size_t edgesBase = grid.firstCell + cellCount + 1;
    if (edgesBase + start[cellCount] > kOffsetMask) return problem = "is too large to index", false;
    index_.resize(edgesBase + start[cellCount]);
    {
        std::vector<std::uint32_t> fill(start.begin(), start.end() - 1);
        for (std::uint32_t r = polygon.firstRing; r < polygon.endRing; ++r)
            for (std::uint32_t e = ringStart_[r]; e + 1 < ringStart_[r + 1]; ++e)
                forEachCell(e, [&](std::size_t cell) { index_[edgesBase + fill[cell]++] = e; });
    }
    for (std::size_t c = 0; c <= cellCount; ++c) index_[grid.firstCell + c] = static_cast<std::uint32_t>(edgesBase + start[c]);
    start = {};
    const std::vector<std::uint32_t>& edges_ = index_;
    const std::uint32_t* cellStart = &index_[grid.firstCell]; // no state bits yet

    // No two edges may cross: only edges sharing a cell can.
    for (std::size_t c = 0; c < cellCount; ++c) {
        const std::uint32_t begin = cellStart[c], end = cellStart[c + 1];
        const std::size_t k = end - begin;
        if ((work += k * k / 2) > kMaxCheckWork) return problem = "is too intricate to check", false;
        for (std::uint32_t a = begin; a < end; ++a)
            for (std::uint32_t b = a + 1; b < end; ++b) {
                const std::uint32_t i = edges_[a], j = edges_[b];
                if (properlyCross(&xy_[2 * i], &xy_[2 * i + 2], &xy_[2 * j], &xy_[2 * j + 2]))
                    return problem = "has edges that cross at " + positionText(xy_[2 * i], xy_[2 * i + 1]), false;
            }
    }

    // Reference states: the first cell by a ray, then each cell from its neighbour
    // (down the first column, then along each row) by the crossings between them.
    std::vector<std::uint8_t> states(cellCount, 0);
    std::uint8_t* state = states.data();
    const auto onEdgeOfCell = [&](std::size_t cell, double x, double y) {
        for (std::uint32_t a = cellStart[cell]; a < cellStart[cell + 1]; ++a)
            if (onSegment(&xy_[2 * edges_[a]], &xy_[2 * edges_[a] + 2], x, y)) return true;
        return false;
    };
    // The state of `cell` from `from`, whose reference is known.
    const auto derive = [&](std::size_t from, std::size_t cell, std::uint32_t column, std::uint32_t row) {
        const unsigned fromShift = (state[from] >> 1) & 7;
        for (unsigned shift = 0; shift < kNoReference; ++shift) {
            double x, y;
            referencePoint(polygon, column, row, shift, x, y);
            if (onEdgeOfCell(cell, x, y)) continue;
            bool inside;
            if (fromShift == kNoReference) {
                const RayAnswer ray = rayTest(polygon, x, y);
                work += edgeCount;
                inside = ray.inside;
            } else {
                double fx, fy;
                referencePoint(polygon, static_cast<std::uint32_t>(from % columns), static_cast<std::uint32_t>(from / columns),
                               fromShift, fx, fy);
                bool parity = state[from] & 1;
                // The two cells' lists, each ascending, merged without repeats.
                std::uint32_t a = cellStart[from], aEnd = cellStart[from + 1], b = cellStart[cell], bEnd = cellStart[cell + 1];
                while (a < aEnd || b < bEnd) {
                    std::uint32_t e;
                    if (b == bEnd || (a < aEnd && edges_[a] < edges_[b])) e = edges_[a++];
                    else if (a == aEnd || edges_[b] < edges_[a]) e = edges_[b++];
                    else { e = edges_[a++]; ++b; }
                    if (crossesPushed(&xy_[2 * e], &xy_[2 * e + 2], fx, fy, x, y)) parity = !parity;
                }
                inside = parity;
            }
            state[cell] = static_cast<std::uint8_t>((shift << 1) | (inside ? 1 : 0));
            return;
        }
        state[cell] = static_cast<std::uint8_t>(kNoReference << 1);
    };
    for (std::uint32_t row = 0; row < rows; ++row) {
        const std::size_t first = std::size_t{row} * columns;
        if (row == 0) {
            state[0] = static_cast<std::uint8_t>(kNoReference << 1); // "from" a cell without a reference: a ray
            derive(0, 0, 0, 0);
        } else {
            derive(first - columns, first, 0, row);
        }
        for (std::uint32_t column = 1; column < columns; ++column) derive(first + column - 1, first + column, column, row);
    }
    for (std::size_t c = 0; c < cellCount; ++c) index_[grid.firstCell + c] |= std::uint32_t{states[c]} << kStateShift;
    return true;
}

bool FenceGeometry::checkPolygon(const Polygon& polygon, std::string& problem, std::size_t& work) const {
    const std::uint32_t shell = polygon.firstRing;
    struct Box {
        double west, south, east, north;
    };
    const auto ringBox = [&](std::uint32_t r) {
        Box box{xy_[2 * ringStart_[r]], xy_[2 * ringStart_[r] + 1], xy_[2 * ringStart_[r]], xy_[2 * ringStart_[r] + 1]};
        for (std::uint32_t i = ringStart_[r]; i < ringStart_[r + 1]; ++i) {
            box.west = std::min(box.west, xy_[2 * i]);
            box.east = std::max(box.east, xy_[2 * i]);
            box.south = std::min(box.south, xy_[2 * i + 1]);
            box.north = std::max(box.north, xy_[2 * i + 1]);
        }
        return box;
    };
    // Whether ring `inner` lies inside ring `outer`, judged by its first position off
    // `outer`; no position off it counts as inside.
    const auto liesInside = [&](std::uint32_t inner, std::uint32_t outer) {
        for (std::uint32_t i = ringStart_[inner]; i < ringStart_[inner + 1]; ++i) {
            work += ringStart_[outer + 1] - ringStart_[outer];
            const RayAnswer answer = ringRayTest(outer, xy_[2 * i], xy_[2 * i + 1]);
            if (!answer.onBoundary) return answer.inside;
        }
        return true;
    };
    std::vector<Box> boxes;
    for (std::uint32_t hole = shell + 1; hole < polygon.endRing; ++hole) {
        if (!liesInside(hole, shell)) return problem = "has a hole outside its outer ring", false;
        boxes.push_back(ringBox(hole));
    }
    for (std::size_t a = 0; a < boxes.size(); ++a)
        for (std::size_t b = a + 1; b < boxes.size(); ++b) {
            if (++work > kMaxCheckWork) return problem = "is too intricate to check", false;
            if (boxes[a].east < boxes[b].west || boxes[b].east < boxes[a].west || boxes[a].north < boxes[b].south ||
                boxes[b].north < boxes[a].south)
                continue;
            const auto ringA = static_cast<std::uint32_t>(shell + 1 + a), ringB = static_cast<std::uint32_t>(shell + 1 + b);
            if (liesInside(ringA, ringB) || liesInside(ringB, ringA)) return problem = "has a hole inside another hole", false;
        }
    if (work > kMaxCheckWork) return problem = "is too intricate to check", false;
    return true;
}

void FenceGeometry::referencePoint(const Polygon& polygon, std::uint32_t column, std::uint32_t row, unsigned shift,
                                   double& x, double& y) const {
    x = polygon.west + (column + 0.5 + kShifts[shift][0]) * static_cast<double>(polygon.cellWidth);
    y = polygon.south + (row + 0.5 + kShifts[shift][1]) * static_cast<double>(polygon.cellHeight);
}

FenceGeometry::RayAnswer FenceGeometry::ringRayTest(std::uint32_t ring, double x, double y) const {
    RayAnswer answer;
    const double* v = xy_.data();
    for (std::uint32_t i = ringStart_[ring]; i + 1 < ringStart_[ring + 1]; ++i) {
        const double ax = v[2 * i], ay = v[2 * i + 1], bx = v[2 * i + 2], by = v[2 * i + 3];
        if ((ay > y) != (by > y)) {
            if (ax < x && bx < x) continue;
            const int o = orientation(ax, ay, bx, by, x, y);
            if (o == 0) return answer.onBoundary = true, answer;
            if (by > ay ? o > 0 : o < 0) answer.inside = !answer.inside;
        } else if (ay == y) {
            if (ax == x) return answer.onBoundary = true, answer;
            if (by == y && x >= std::min(ax, bx) && x <= std::max(ax, bx)) return answer.onBoundary = true, answer;
        }
    }
    return answer;
}

FenceGeometry::RayAnswer FenceGeometry::rayTest(const Polygon& polygon, double x, double y) const {
    RayAnswer answer;
    for (std::uint32_t r = polygon.firstRing; r < polygon.endRing; ++r) {
        const RayAnswer ring = ringRayTest(r, x, y);
        if (ring.onBoundary) return ring;
        answer.inside ^= ring.inside;
    }
    return answer;
}

bool FenceGeometry::polygonContains(const Polygon& polygon, double x, double y) const {
    if (x < polygon.west || x > polygon.east || y < polygon.south || y > polygon.north) return false;
    if (polygon.columns == 0) {
        const RayAnswer answer = rayTest(polygon, x, y);
        return answer.inside && !answer.onBoundary;
    }
    const auto column = static_cast<std::uint32_t>(std::clamp(
        std::floor((x - polygon.west) / static_cast<double>(polygon.cellWidth)), 0.0, double(polygon.columns - 1)));
    const auto row = static_cast<std::uint32_t>(std::clamp(
        std::floor((y - polygon.south) / static_cast<double>(polygon.cellHeight)), 0.0, double(polygon.rows - 1)));
    const std::size_t cell = polygon.firstCell + std::size_t{row} * polygon.columns + column;
    const std::uint32_t begin = index_[cell] & kOffsetMask, end = index_[cell + 1] & kOffsetMask;
    const unsigned state = index_[cell] >> kStateShift;
    if (begin == end) return state & 1;
    const unsigned shift = (state >> 1) & 7;
    if (shift == kNoReference) {
        const RayAnswer answer = rayTest(polygon, x, y);
        return answer.inside && !answer.onBoundary;
    }
    double rx, ry;
    referencePoint(polygon, column, row, shift, rx, ry);
    bool inside = state & 1;
    const double* v = xy_.data();
    for (std::uint32_t a = begin; a < end; ++a) {
        const double* p = v + 2 * index_[a];
        if (onSegment(p, p + 2, x, y)) return false;
        if (crossesPushed(p, p + 2, x, y, rx, ry)) inside = !inside;
    }
    return inside;
}

bool FenceGeometry::contains(double latitude, double longitude) const {
    if (!std::isfinite(latitude) || !std::isfinite(longitude)) return false;
    if (longitude < -180.0 || longitude >= 180.0) longitude = normalizedLongitude(longitude);
    const double x = flushTiny(longitude), y = flushTiny(latitude);
    if (const PartGrid* grid = partGrid_.get()) {
        const double u = std::floor((x - grid->west) / grid->cellWidth), v = std::floor((y - grid->south) / grid->cellHeight);
        if (u < -1 || v < -1 || u > grid->columns || v > grid->rows) return false;
        const auto column = static_cast<std::uint32_t>(std::clamp(u, 0.0, double(grid->columns - 1)));
        const auto row = static_cast<std::uint32_t>(std::clamp(v, 0.0, double(grid->rows - 1)));
        const std::size_t cell = std::size_t{row} * grid->columns + column;
        for (std::uint32_t i = grid->start[cell]; i < grid->start[cell + 1]; ++i)
            if (polygonContains(polygons_[grid->parts[i]], x, y)) return true;
        return false;
    }
    for (const Polygon& polygon : polygons_)
        if (polygonContains(polygon, x, y)) return true;
    return false;
}

FenceGeometry::RectangleSide FenceGeometry::rectangleSide(double west, double south, double east,
                                                           double north) const {
    for (const Polygon& polygon : polygons_) {
        if (east < polygon.west || west > polygon.east || north < polygon.south || south > polygon.north) continue;
        for (std::uint32_t r = polygon.firstRing; r < polygon.endRing; ++r)
            for (std::uint32_t i = ringStart_[r]; i + 1 < ringStart_[r + 1]; ++i) {
                const double* a = &xy_[2 * i];
                const double* b = a + 2;
                if (std::max(a[0], b[0]) < west || std::min(a[0], b[0]) > east || std::max(a[1], b[1]) < south ||
                    std::min(a[1], b[1]) > north)
                    continue;
                // The edge's box meets the rectangle: unless every corner lies strictly
                // on one side of its line, count it as touching.
                const int c1 = orientation(a[0], a[1], b[0], b[1], west, south);
                const int c2 = orientation(a[0], a[1], b[0], b[1], east, south);
                const int c3 = orientation(a[0], a[1], b[0], b[1], east, north);
                const int c4 = orientation(a[0], a[1], b[0], b[1], west, north);
                if (!(c1 == c2 && c2 == c3 && c3 == c4 && c1 != 0)) return RectangleSide::Edge;
            }
    }
    // No edge near: the whole rectangle is as its centre.
    return contains((south + north) / 2, (west + east) / 2) ? RectangleSide::Inside : RectangleSide::Outside;
}

double FenceGeometry::signedDistance(double latitude, double longitude) const {
    using namespace wgs84;
    const double x = normalizedLongitude(longitude), y = latitude;
    const double kx = parallelRadius(y) * kDegree, ky = meridianRadius(y) * kDegree;
    const auto local = [&](const double* v, double& u, double& w) {
        u = std::remainder(v[0] - x, 360.0) * kx;
        w = (v[1] - y) * ky;
    };
    double best = std::numeric_limits<double>::infinity();
    for (const Polygon& polygon : polygons_) {
        // A polygon whose box is farther than the best edge so far cannot hold a nearer one.
        const double boxDx = std::max({polygon.west - x, 0.0, x - polygon.east}) * kx;
        const double boxDy = std::max({polygon.south - y, 0.0, y - polygon.north}) * ky;
        if (polygon.west - x < 180.0 && x - polygon.east < 180.0 && std::hypot(boxDx, boxDy) > best) continue;
        for (std::uint32_t r = polygon.firstRing; r < polygon.endRing; ++r)
            for (std::uint32_t i = ringStart_[r]; i + 1 < ringStart_[r + 1]; ++i) {
                double ax, ay, bx, by;
                local(&xy_[2 * i], ax, ay);
                local(&xy_[2 * i + 2], bx, by);
                const double dx = bx - ax, dy = by - ay, length2 = dx * dx + dy * dy;
                const double t = length2 > 0.0 ? std::clamp(-(ax * dx + ay * dy) / length2, 0.0, 1.0) : 0.0;
                best = std::min(best, std::hypot(ax + t * dx, ay + t * dy));
            }
    }
    return contains(latitude, longitude) ? -best : best;
}

bool FenceGeometry::withinCircle(double latitude, double longitude, double radius) const {
    using namespace wgs84;
    if (!std::isfinite(latitude) || !std::isfinite(longitude) || !(radius > 0.0)) return false;
    constexpr double kSphere = 6371008.8;
    const double reach = (radius * 1.01 + 10.0) / kSphere;
    if (reach >= std::numbers::pi) return true;
    const double limit = 2.0 * std::sin(reach / 2.0);
    const double phi = latitude * kDegree, lambda = longitude * kDegree;
    const double cx = std::cos(phi) * std::cos(lambda), cy = std::cos(phi) * std::sin(lambda), cz = std::sin(phi);
    for (std::size_t i = 0; i < xy_.size(); i += 2) {
        const double p = xy_[i + 1] * kDegree, l = xy_[i] * kDegree;
        const double dx = std::cos(p) * std::cos(l) - cx, dy = std::cos(p) * std::sin(l) - cy, dz = std::sin(p) - cz;
        if (dx * dx + dy * dy + dz * dz > limit * limit) return false;
    }
    return true;
}

std::string FenceGeometry::geoJson() const {
    const bool multi = multi_ || polygons_.size() != 1;
    std::string text = multi ? "{\"type\":\"MultiPolygon\",\"coordinates\":[" : "{\"type\":\"Polygon\",\"coordinates\":";
    for (std::size_t p = 0; p < polygons_.size(); ++p) {
        if (p) text += ',';
        text += '[';
        for (std::uint32_t r = polygons_[p].firstRing; r < polygons_[p].endRing; ++r) {
            if (r != polygons_[p].firstRing) text += ',';
            text += '[';
            for (std::uint32_t i = ringStart_[r]; i < ringStart_[r + 1]; ++i) {
                if (i != ringStart_[r]) text += ',';
                text += '[' + doubleText(xy_[2 * i]) + ',' + doubleText(xy_[2 * i + 1]) + ']';
            }
            text += ']';
        }
        text += ']';
    }
    text += multi ? "]}" : "}";
    return text;
}

std::vector<std::vector<std::vector<std::pair<double, double>>>> FenceGeometry::polygons() const {
    std::vector<std::vector<std::vector<std::pair<double, double>>>> out(polygons_.size());
    for (std::size_t p = 0; p < polygons_.size(); ++p)
        for (std::uint32_t r = polygons_[p].firstRing; r < polygons_[p].endRing; ++r) {
            auto& ring = out[p].emplace_back();
            for (std::uint32_t i = ringStart_[r]; i < ringStart_[r + 1]; ++i) ring.emplace_back(xy_[2 * i], xy_[2 * i + 1]);
        }
    return out;
}

std::size_t FenceGeometry::memoryBytes() const {
    return sizeof(FenceGeometry) + xy_.capacity() * sizeof(double) + ringStart_.capacity() * sizeof(std::uint32_t) +
           polygons_.capacity() * sizeof(Polygon) + index_.capacity() * sizeof(std::uint32_t) +
           (partGrid_ ? sizeof(PartGrid) + (partGrid_->start.capacity() + partGrid_->parts.capacity()) * sizeof(std::uint32_t)
                      : 0);
}

double FenceGeometry::west() const {
    double value = std::numeric_limits<double>::infinity();
    for (const Polygon& polygon : polygons_) value = std::min(value, polygon.west);
    return value;
}

double FenceGeometry::south() const {
    double value = std::numeric_limits<double>::infinity();
    for (const Polygon& polygon : polygons_) value = std::min(value, polygon.south);
    return value;
}

double FenceGeometry::east() const {
    double value = -std::numeric_limits<double>::infinity();
    for (const Polygon& polygon : polygons_) value = std::max(value, polygon.east);
    return value;
}

double FenceGeometry::north() const {
    double value = -std::numeric_limits<double>::infinity();
    for (const Polygon& polygon : polygons_) value = std::max(value, polygon.north);
    return value;
}

bool FenceGeometry::operator==(const FenceGeometry& other) const {
    if (xy_ != other.xy_ || ringStart_ != other.ringStart_ || polygons_.size() != other.polygons_.size()) return false;
    for (std::size_t p = 0; p < polygons_.size(); ++p)
        if (polygons_[p].firstRing != other.polygons_[p].firstRing || polygons_[p].endRing != other.polygons_[p].endRing)
            return false;
    return (multi_ || polygons_.size() != 1) == (other.multi_ || other.polygons_.size() != 1);
}

} // namespace bvgeo
