#include "zone/ZoneBuilderClip.hpp"

#include "platform/Geodesic.hpp"
#include "platform/NumberText.hpp"
#include "platform/Orientation.hpp"
#include "zone/ZoneGrid.hpp"

#include <algorithm>
#include <cmath>

// Clipping to a rectangle, Weiler-Atherton style: outer rings are turned
// counter-clockwise and holes clockwise, so the inside is always on the left; each
// ring is cut into chains that enter and leave the rectangle, and the chains are
// joined by walking the rectangle's boundary counter-clockwise from each exit to
// the next entry. The rectangle's sides are moved outward by a few units in the last
// place until no vertex lies on them, so no vertex or edge ever lies on a side.

namespace bvgeo {
namespace {

struct Point {
    double x, y;
};
using Ring = std::vector<Point>; // closed: back() == front()
using Poly = std::vector<Ring>;  // outer ring first

struct Rect {
    double x0, y0, x1, y1;
};

std::vector<Poly> toPolys(const PolygonRings& rings) {
    std::vector<Poly> polys;
    std::uint32_t ring = 0, position = 0;
    for (std::uint32_t end : rings.polygonEnds) {
        Poly& poly = polys.emplace_back();
        for (; ring < end; ++ring) {
            Ring& out = poly.emplace_back();
            for (; position < rings.ringEnds[ring]; ++position) out.push_back({rings.xy[2 * position], rings.xy[2 * position + 1]});
        }
    }
    return polys;
}

PolygonRings fromPolys(const std::vector<Poly>& polys) {
    PolygonRings rings;
    for (const Poly& poly : polys) {
        for (const Ring& ring : poly) {
            for (const Point& p : ring) {
                rings.xy.push_back(p.x);
                rings.xy.push_back(p.y);
            }
            rings.ringEnds.push_back(static_cast<std::uint32_t>(rings.xy.size() / 2));
        }
        rings.polygonEnds.push_back(static_cast<std::uint32_t>(rings.ringEnds.size()));
    }
    return rings;
}

// +1 counter-clockwise, -1 clockwise, 0 no area. Taken exactly at the lowest of the
// westernmost vertices, where a simple ring turns the way it winds; a thin sliver
// would fool a sum of areas.
int winding(const Ring& ring) {
    const std::size_t n = ring.size() - 1;
    if (n < 3) return 0;
    std::size_t at = 0;
    for (std::size_t i = 1; i < n; ++i)
        if (ring[i].x < ring[at].x || (ring[i].x == ring[at].x && ring[i].y < ring[at].y)) at = i;
    std::size_t before = (at + n - 1) % n, after = (at + 1) % n;
    for (std::size_t k = 0; k < n && ring[before].x == ring[at].x && ring[before].y == ring[at].y; ++k) before = (before + n - 1) % n;
    for (std::size_t k = 0; k < n && ring[after].x == ring[at].x && ring[after].y == ring[at].y; ++k) after = (after + 1) % n;
    if (const int turn = orientation(ring[before].x, ring[before].y, ring[at].x, ring[at].y, ring[after].x, ring[after].y))
        return turn;
    double area = 0; // a spike at that vertex: the sum, relative to it
    for (std::size_t i = 0; i < n; ++i)
        area += (ring[i].x - ring[at].x) * (ring[i + 1].y - ring[at].y) - (ring[i + 1].x - ring[at].x) * (ring[i].y - ring[at].y);
    return area > 0 ? 1 : area < 0 ? -1 : 0;
}

bool ringContains(const Ring& ring, Point p) {
    bool inside = false;
    for (std::size_t i = 0; i + 1 < ring.size(); ++i) {
        const Point a = ring[i], b = ring[i + 1];
        if ((a.y > p.y) != (b.y > p.y) && p.x < a.x + (p.y - a.y) * (b.x - a.x) / (b.y - a.y)) inside = !inside;
    }
    return inside;
}

bool strictlyInside(const Rect& r, Point p) { return p.x > r.x0 && p.x < r.x1 && p.y > r.y0 && p.y < r.y1; }

// Where a point on the boundary lies, counter-clockwise from the south-west corner: [0, 4).
double perimeter(const Rect& r, Point p, int side) {
    switch (side) {
    case 2: return (p.x - r.x0) / (r.x1 - r.x0);           // south
    case 1: return 1 + (p.y - r.y0) / (r.y1 - r.y0);       // east
    case 3: return 2 + (r.x1 - p.x) / (r.x1 - r.x0);       // north
    default: return 3 + (r.y1 - p.y) / (r.y1 - r.y0);      // west
    }
}

Point corner(const Rect& r, int k) {
    switch (k % 4) {
    case 0: return {r.x0, r.y0};
    case 1: return {r.x1, r.y0};
    case 2: return {r.x1, r.y1};
    default: return {r.x0, r.y1};
    }
}

// The part of segment a→b inside the rectangle, Liang-Barsky: parameters and the
// sides crossed at each end (-1: that end is the segment's own).
struct Cut {
    bool any = false;
    double t0 = 0, t1 = 1;
    int side0 = -1, side1 = -1;
};

Cut cut(const Rect& r, Point a, Point b) {
    Cut c;
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {a.x - r.x0, r.x1 - a.x, a.y - r.y0, r.y1 - a.y};
    for (int k = 0; k < 4; ++k) {
        if (p[k] == 0) {
            if (q[k] < 0) return c;
            continue;
        }
        const double t = q[k] / p[k];
        if (p[k] < 0) {
            if (t > c.t1) return c;
            if (t > c.t0) c.t0 = t, c.side0 = k;
        } else {
            if (t < c.t0) return c;
            if (t < c.t1) c.t1 = t, c.side1 = k;
        }
    }
    c.any = c.t0 < c.t1;
    return c;
}

// Side numbers of cut(): 0 west, 1 east, 2 south, 3 north.
Point onSide(const Rect& r, Point a, Point b, double t, int side) {
    switch (side) {
    case 0: return {r.x0, std::clamp(a.y + t * (b.y - a.y), r.y0, r.y1)};
    case 1: return {r.x1, std::clamp(a.y + t * (b.y - a.y), r.y0, r.y1)};
    case 2: return {std::clamp(a.x + t * (b.x - a.x), r.x0, r.x1), r.y0};
    default: return {std::clamp(a.x + t * (b.x - a.x), r.x0, r.x1), r.y1};
    }
}

struct Chain {
    std::vector<Point> points;
    double entry = 0, exit = 0;
};

enum class Whole { Inside, Outside, Encloses, Cut };

// Cuts one ring into chains; says how the ring lies when it is not cut.
Whole chainsOf(const Rect& r, const Ring& ring, std::vector<Chain>& chains) {
    std::size_t start = ring.size();
    for (std::size_t i = 0; i + 1 < ring.size(); ++i)
        if (!strictlyInside(r, ring[i])) {
            start = i;
            break;
        }
    if (start == ring.size()) return Whole::Inside;
    const std::size_t n = ring.size() - 1, before = chains.size();
    Chain* open = nullptr;
    for (std::size_t step = 0; step < n; ++step) {
        const Point a = ring[(start + step) % n], b = ring[(start + step + 1) % n];
        const bool aIn = strictlyInside(r, a), bIn = strictlyInside(r, b);
        if (aIn && bIn) {
            open->points.push_back(b);
            continue;
        }
        const Cut c = cut(r, a, b);
        if (aIn) {
            const Point exit = onSide(r, a, b, c.t1, c.side1);
            open->points.push_back(exit);
            open->exit = perimeter(r, exit, c.side1);
            open = nullptr;
        } else if (bIn) {
            const Point entry = onSide(r, a, b, c.t0, c.side0);
            chains.push_back({{entry, b}, perimeter(r, entry, c.side0), 0});
            open = &chains.back();
        } else if (c.any && c.side0 >= 0 && c.side1 >= 0) {
            const Point entry = onSide(r, a, b, c.t0, c.side0), exit = onSide(r, a, b, c.t1, c.side1);
            chains.push_back({{entry, exit}, perimeter(r, entry, c.side0), perimeter(r, exit, c.side1)});
        }
    }
    if (chains.size() > before) return Whole::Cut;
    return ringContains(ring, {(r.x0 + r.x1) / 2, (r.y0 + r.y1) / 2}) ? Whole::Encloses : Whole::Outside;
}

// Joins chains into closed rings along the boundary.
std::vector<Ring> link(const Rect& r, std::vector<Chain>& chains) {
    std::vector<std::pair<double, std::size_t>> entries;
    for (std::size_t i = 0; i < chains.size(); ++i) entries.emplace_back(chains[i].entry, i);
    std::sort(entries.begin(), entries.end());
    std::vector<bool> used(chains.size(), false);
    std::vector<Ring> rings;
    for (std::size_t first = 0; first < chains.size(); ++first) {
        if (used[first]) continue;
        Ring ring;
        std::size_t at = first;
        for (std::size_t guard = 0; guard <= chains.size(); ++guard) {
            used[at] = true;
            ring.insert(ring.end(), chains[at].points.begin(), chains[at].points.end());
            const double from = chains[at].exit;
            auto next = std::upper_bound(entries.begin(), entries.end(), std::pair{from, chains.size()});
            if (next == entries.end()) next = entries.begin();
            double to = next->first;
            if (to <= from) to += 4;
            for (double k = std::floor(from) + 1; k < to; ++k) ring.push_back(corner(r, static_cast<int>(k)));
            at = next->second;
            if (at == first || used[at]) break;
        }
        ring.push_back(ring.front());
        rings.push_back(std::move(ring));
    }
    return rings;
}

std::vector<Poly> clipPoly(const Rect& r, Poly poly) {
    for (std::size_t i = 0; i < poly.size(); ++i) {
        const int turn = winding(poly[i]);
        if (turn == 0) { // no area: as if absent
            if (i == 0) return {};
            poly.erase(poly.begin() + static_cast<std::ptrdiff_t>(i--));
            continue;
        }
        if ((turn > 0) != (i == 0)) std::reverse(poly[i].begin(), poly[i].end());
    }
    std::vector<Chain> chains;
    std::vector<Ring> innerHoles;
    const Whole shell = chainsOf(r, poly[0], chains);
    if (shell == Whole::Outside) return {};
    for (std::size_t i = 1; i < poly.size(); ++i) {
        switch (chainsOf(r, poly[i], chains)) {
        case Whole::Inside: innerHoles.push_back(poly[i]); break;
        case Whole::Encloses: return {}; // the whole rectangle lies in the hole
        default: break;
        }
    }
    std::vector<Poly> out;
    if (shell == Whole::Inside) {
        out.push_back({poly[0]});
    } else if (!chains.empty()) {
        for (Ring& ring : link(r, chains)) out.push_back({std::move(ring)});
    } else {
        out.push_back({{corner(r, 0), corner(r, 1), corner(r, 2), corner(r, 3), corner(r, 0)}});
    }
    for (Ring& hole : innerHoles)
        for (Poly& piece : out)
            if (ringContains(piece[0], hole[0])) {
                piece.push_back(std::move(hole));
                break;
            }
    return out;
}

// Moves a side outward until no vertex lies on it.
double clearOf(double value, double outward, const std::vector<Poly>& polys, bool isX) {
    for (bool again = true; again;) {
        again = false;
        for (const Poly& poly : polys)
            for (const Ring& ring : poly)
                for (const Point& p : ring)
                    if ((isX ? p.x : p.y) == value) again = true;
        if (again) value = std::nextafter(value, outward);
    }
    return value;
}

struct Box {
    double x0, y0, x1, y1;
};

Box boxOf(const std::vector<Poly>& polys) {
    Box box{INFINITY, INFINITY, -INFINITY, -INFINITY};
    for (const Poly& poly : polys)
        for (const Point& p : poly[0]) {
            box.x0 = std::min(box.x0, p.x);
            box.x1 = std::max(box.x1, p.x);
            box.y0 = std::min(box.y0, p.y);
            box.y1 = std::max(box.y1, p.y);
        }
    return box;
}

long long cellOf(double coordinate, double interval) {
    return std::llround(zoneCenterCoordinate(coordinate, interval) / interval - 0.5);
}

void clipRange(std::vector<Poly> polys, long long r0, long long r1, long long c0, long long c1, int depth,
               double interval, std::map<ZoneCell, PolygonRings>& out) {
    // Each level's margin is a little wider than its children's, so a side cut by a
    // parent never coincides with a child's.
    const double margin = clipMargin(interval) * (2.0 - depth / 64.0);
    Rect r{static_cast<double>(c0) * interval - margin, static_cast<double>(r0) * interval - margin,
           static_cast<double>(c1 + 1) * interval + margin, static_cast<double>(r1 + 1) * interval + margin};
    const Box box = boxOf(polys);
    if (box.x1 < r.x0 || box.x0 > r.x1 || box.y1 < r.y0 || box.y0 > r.y1) return;
    if (!(box.x0 > r.x0 && box.x1 < r.x1 && box.y0 > r.y0 && box.y1 < r.y1)) {
        r.x0 = clearOf(r.x0, -INFINITY, polys, true);
        r.x1 = clearOf(r.x1, INFINITY, polys, true);
        r.y0 = clearOf(r.y0, -INFINITY, polys, false);
        r.y1 = clearOf(r.y1, INFINITY, polys, false);
        std::vector<Poly> clipped;
        for (Poly& poly : polys)
            for (Poly& piece : clipPoly(r, std::move(poly))) clipped.push_back(std::move(piece));
        polys = std::move(clipped);
        if (polys.empty()) return;
    }
    if (r0 == r1 && c0 == c1) {
        out[{r0, c0}] = fromPolys(polys);
        return;
    }
    if (r1 - r0 >= c1 - c0) {
        const long long middle = r0 + (r1 - r0) / 2;
        clipRange(polys, r0, middle, c0, c1, depth + 1, interval, out);
        clipRange(std::move(polys), middle + 1, r1, c0, c1, depth + 1, interval, out);
    } else {
        const long long middle = c0 + (c1 - c0) / 2;
        clipRange(polys, r0, r1, c0, middle, depth + 1, interval, out);
        clipRange(std::move(polys), r0, r1, middle + 1, c1, depth + 1, interval, out);
    }
}

} // namespace

double clipMargin(double interval) { return interval * 1e-4; }

bool unwrapAntimeridian(PolygonRings& rings) {
    bool crosses = false;
    std::uint32_t start = 0;
    for (std::uint32_t end : rings.ringEnds) {
        for (std::uint32_t i = start; i + 1 < end; ++i) {
            const double a = rings.xy[2 * i], b = rings.xy[2 * i + 2];
            // An edge along the antimeridian itself (from +180 to -180) is no crossing.
            if (std::fabs(a - b) > 180.0 && std::fabs(a) != 180.0 && std::fabs(b) != 180.0) crosses = true;
        }
        start = end;
    }
    if (!crosses) return false;
    for (std::size_t i = 0; i < rings.xy.size(); i += 2)
        if (rings.xy[i] < 0) rings.xy[i] += 360.0;
    return true;
}

std::map<ZoneCell, PolygonRings> clipToCells(const PolygonRings& rings, double interval) {
    std::map<ZoneCell, PolygonRings> unwrapped, cells;
    std::vector<Poly> polys = toPolys(rings);
    if (polys.empty()) return cells;
    const Box box = boxOf(polys);
    // One cell more on each side: a position snapped there may still reach the margin.
    clipRange(std::move(polys), cellOf(box.y0, interval) - 1, cellOf(box.y1, interval) + 1, cellOf(box.x0, interval) - 1,
              cellOf(box.x1, interval) + 1, 0, interval, unwrapped);
    const long long turn = std::llround(360.0 / interval);
    for (auto& [cell, piece] : unwrapped) {
        ZoneCell named = cell;
        if ((static_cast<double>(cell.second) + 0.5) * interval > 180.0) {
            named.second -= turn;
            for (std::size_t i = 0; i < piece.xy.size(); i += 2) piece.xy[i] -= 360.0; // exact for (180, 540]
        }
        for (std::size_t i = 0; i < piece.xy.size(); i += 2) piece.xy[i] = std::clamp(piece.xy[i], -180.0, 180.0);
        for (std::size_t i = 1; i < piece.xy.size(); i += 2) piece.xy[i] = std::clamp(piece.xy[i], -90.0, 90.0);
        cells[named] = std::move(piece);
    }
    return cells;
}

EnclosingCircle enclosingCircle(const PolygonRings& rings) {
    EnclosingCircle circle;
    double west = INFINITY, east = -INFINITY, south = INFINITY, north = -INFINITY;
    for (std::size_t i = 0; i < rings.xy.size(); i += 2) {
        west = std::min(west, rings.xy[i]);
        east = std::max(east, rings.xy[i]);
        south = std::min(south, rings.xy[i + 1]);
        north = std::max(north, rings.xy[i + 1]);
    }
    circle.latitude = (south + north) / 2;
    circle.longitude = (west + east) / 2;
    double farthest = 0;
    std::uint32_t start = 0;
    for (std::uint32_t end : rings.ringEnds) {
        for (std::uint32_t i = start; i < end; ++i) {
            const double x = rings.xy[2 * i], y = rings.xy[2 * i + 1];
            farthest = std::max(farthest, geodesicDistance(circle.latitude, circle.longitude, y, x));
            if (i + 1 == end) break;
            // Edges are straight in longitude/latitude, not geodesics: sample long ones.
            const double nx = rings.xy[2 * i + 2], ny = rings.xy[2 * i + 3];
            const int samples = static_cast<int>(std::min(64.0, std::hypot(nx - x, ny - y) / 0.01));
            for (int k = 1; k < samples; ++k) {
                const double t = static_cast<double>(k) / samples;
                farthest = std::max(farthest, geodesicDistance(circle.latitude, circle.longitude, y + t * (ny - y),
                                                               x + t * (nx - x)));
            }
        }
        start = end;
    }
    circle.radius = std::ceil(farthest * (1 + 1e-6) + 0.5);
    return circle;
}

std::string geometryJson(const PolygonRings& rings, bool multi) {
    multi = multi || rings.polygonEnds.size() != 1;
    std::string text = multi ? "{\"type\":\"MultiPolygon\",\"coordinates\":[" : "{\"type\":\"Polygon\",\"coordinates\":";
    std::uint32_t ring = 0, position = 0;
    for (std::size_t p = 0; p < rings.polygonEnds.size(); ++p) {
        if (p) text += ',';
        text += '[';
        for (const std::uint32_t first = ring; ring < rings.polygonEnds[p]; ++ring) {
            if (ring != first) text += ',';
            text += '[';
            for (const std::uint32_t from = position; position < rings.ringEnds[ring]; ++position) {
                if (position != from) text += ',';
                text += '[' + doubleText(rings.xy[2 * position]) + ',' + doubleText(rings.xy[2 * position + 1]) + ']';
            }
            text += ']';
        }
        text += ']';
    }
    text += multi ? "]}" : "}";
    return text;
}

} // namespace bvgeo
