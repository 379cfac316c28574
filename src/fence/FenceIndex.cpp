#include "fence/FenceIndex.hpp"

#include "fence/FenceDistance.hpp"

#include "platform/Geodesic.hpp"
#include "platform/Wgs84.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>
#include <utility>

// Every shortcut here only ever decides when the exact geodesic rule is certain to
// agree; anything close to a rim goes to geodesicDistance. The bounds rest on one
// fact: on the ellipsoid ds² = M(φ)²dφ² + (N(φ)cosφ)²dλ², so comparing M and N·cosφ
// with the coefficients of a simpler metric bounds every path length, and hence the
// geodesic distance, by the simpler metric's distance times those ratios.

namespace bvgeo {
namespace {

using wgs84::kDegree;
using wgs84::kMinMetresPerDegreeLatitude;
using wgs84::kMinMetresPerDegreeLongitudeAtEquator;
using wgs84::meridianRadius;
using wgs84::parallelRadius;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

constexpr double kBoxMargin = 1.001;

// Covers GeographicLib's few nanometres of error and our own rounding.
constexpr double kAbsoluteSlack = 1e-6;
constexpr double kRelativeSlack = 1e-12;

// Against a sphere of the mean radius, M and N stay within [0.99442, 1.00449] of R
// everywhere, so ±1% is a safe global bound.
constexpr double kSphereRadius = 6371008.8;
constexpr double kSphereLow = 0.99;
constexpr double kSphereHigh = 1.01;

// Grid shape. Cells as wide as the typical fence's radius still let many whole cells
// be marked surely inside, which saves the per-candidate test for most hits; halving
// them bought no speed and cost three times the entries (memory and build time).
constexpr double kCellOverMedianRadius = 1.0;
constexpr double kLargeRadiusOverCell = 8.0; // for the 99th percentile
constexpr double kMinCellDegrees = 1e-4;
constexpr double kMaxCellDegrees = 1.0;
constexpr double kPolarLimitDegrees = 89.0;
constexpr std::int64_t kMaxCellsPerFence = 1024;
// Total cell entries allowed per fence on average; past it the largest boxes move to
// the everywhere list, so a skewed list cannot blow up memory.
constexpr std::size_t kEntryBudgetPerFence = 64;
// Polygons up to this size are placed by the cells they really reach, each cell
// tested against their edges when the index is built.
constexpr std::size_t kClassifiedPolygonPositions = 256;

double square(double value) { return value * value; }

float floatAtMost(double value) {
    const auto rounded = static_cast<float>(value);
    return static_cast<double>(rounded) <= value ? rounded
                                                 : std::nextafter(rounded, -std::numeric_limits<float>::infinity());
}

float floatAtLeast(double value) {
    const auto rounded = static_cast<float>(value);
    return static_cast<double>(rounded) >= value ? rounded
                                                 : std::nextafter(rounded, std::numeric_limits<float>::infinity());
}

bool validPosition(double latitude, double longitude) {
    return latitude >= -90.0 && latitude <= 90.0 && std::isfinite(longitude);
}

// A radius of +inf would contain everything by the bare comparison; treat it, like
// NaN and non-positive radii, as a fence that contains nothing.
bool usableFence(const Fence& fence) {
    return validPosition(fence.latitude, fence.longitude) && fence.radius > 0.0 && std::isfinite(fence.radius);
}

bool exactlyInside(double latitude, double longitude, const Fence& fence) {
    if (fence.geometry) return fence.geometry->contains(latitude, longitude);
    return geodesicDistance(latitude, longitude, fence.latitude, fence.longitude) < fence.radius;
}

// Into [-180, 180), the same way for fences and positions so cell columns agree.
double normalizedLongitude(double longitude) {
    double reduced = std::remainder(longitude, 360.0);
    return reduced >= 180.0 ? reduced - 360.0 : reduced;
}

void unitVector(double latitude, double longitude, double (&out)[3]) {
    const double cosLatitude = std::cos(latitude * kDegree);
    out[0] = cosLatitude * std::cos(longitude * kDegree);
    out[1] = cosLatitude * std::sin(longitude * kDegree);
    out[2] = std::sin(latitude * kDegree);
}

// Squared chord of a great-circle distance on the sphere; +inf when the distance
// reaches past the antipode, where every point is nearer.
double chordSquared(double metres) {
    const double angle = metres / kSphereRadius;
    if (angle >= std::numbers::pi) return kInfinity;
    return square(2.0 * std::sin(angle / 2.0));
}

struct SphereBounds {
    double insideBelow;
    double outsideFrom;
};

SphereBounds sphereBounds(double radius) {
    const double inner = (radius - kAbsoluteSlack) / kSphereHigh;
    return {inner > 0.0 ? chordSquared(inner) : -1.0, chordSquared((radius + kAbsoluteSlack) / kSphereLow)};
}

double chordSquaredBetween(const double (&a)[3], double x, double y, double z) {
    return square(a[0] - x) + square(a[1] - y) + square(a[2] - z);
}

// One rounding recipe for fences and positions: a position strictly inside a box
// then always lands in one of the box's cells.
std::int64_t gridIndex(double degreesFromOrigin, double cellDegrees) {
    return static_cast<std::int64_t>(std::floor(degreesFromOrigin / cellDegrees));
}

std::uint64_t mixKey(std::uint64_t key) {
    key *= 0x9E3779B97F4A7C15ull;
    return key ^ (key >> 29);
}

constexpr std::uint64_t kEmptyKey = ~std::uint64_t{0};

// Indices of the fences found, on the stack while they fit.
class SmallHits {
public:
    void push_back(std::uint32_t index) {
        if (spill_.empty()) {
            if (size_ < kInline) {
                inline_[size_++] = index;
                return;
            }
            spill_.assign(inline_, inline_ + size_);
        }
        spill_.push_back(index);
    }
    std::size_t size() const { return spill_.empty() ? size_ : spill_.size(); }
    std::uint32_t operator[](std::size_t i) const { return spill_.empty() ? inline_[i] : spill_[i]; }

private:
    static constexpr std::size_t kInline = 64;
    std::uint32_t inline_[kInline];
    std::size_t size_ = 0;
    std::vector<std::uint32_t> spill_;
};

} // namespace

bool isLocationInsideFence(double latitude, double longitude, const Fence& fence) {
    if (fence.geometry) return fence.geometry->contains(latitude, longitude);
    if (!usableFence(fence) || !validPosition(latitude, longitude)) return false;
    double centre[3], position[3];
    unitVector(fence.latitude, normalizedLongitude(fence.longitude), centre);
    unitVector(latitude, normalizedLongitude(longitude), position);
    const double chord = chordSquaredBetween(position, centre[0], centre[1], centre[2]);
    const SphereBounds bounds = sphereBounds(fence.radius);
    if (chord < bounds.insideBelow) return true;
    if (chord >= bounds.outsideFrom) return false;
    return exactlyInside(latitude, longitude, fence);
}

FenceIndex::FenceIndex(FenceList fences) : fences_(std::move(fences)) {
    const std::size_t count = fences_.size();
    local_.resize(count);

    // First what does not depend on the cell size: which fences the grid can hold at
    // all, their boxes in degrees, and their local bounds.
    struct Extent {
        std::uint32_t index;
        double latitudeHalf, longitudeHalf;
    };
    std::vector<Extent> extents;
    struct PolygonBox {
        std::uint32_t index;
        double south, north, west, east;
    };
    std::vector<PolygonBox> polygonBoxes;
    std::vector<std::uint32_t> everywhere;
    std::vector<double> radii;
    for (std::size_t i = 0; i < count; ++i) {
        const Fence* fence = fences_[i].get();
        if (fence && fence->geometry) {
            // A polygon fence is placed by its box and decided by its geometry. Its
            // record holds the box instead of a disc (marked by a zero scale), so a
            // candidate outside the box costs no visit to the geometry.
            const FenceGeometry& geometry = *fence->geometry;
            const auto index = static_cast<std::uint32_t>(i);
            LocalDisc& disc = local_[i];
            disc.latitude = geometry.south();
            disc.longitude = geometry.west();
            disc.metresPerDegreeLatitude = 0.0f;
            disc.metresPerDegreeLongitude = 0.0f;
            disc.insideBelow = floatAtLeast(geometry.north() - geometry.south());
            disc.outsideFrom = floatAtLeast(geometry.east() - geometry.west());
            if (std::max(std::abs(geometry.south()), std::abs(geometry.north())) > kPolarLimitDegrees) {
                everywhere.push_back(index);
                continue;
            }
            polygonBoxes.push_back({index, geometry.south(), geometry.north(), geometry.west(), geometry.east()});
            radii.push_back(std::max((geometry.north() - geometry.south()) * kMinMetresPerDegreeLatitude,
                                     (geometry.east() - geometry.west()) * kDegree *
                                         parallelRadius((geometry.south() + geometry.north()) / 2.0)) /
                            2.0);
            continue;
        }
        if (!fence || !usableFence(*fence)) continue; // contains nothing, so needs no place
        const auto index = static_cast<std::uint32_t>(i);
        const double reach = fence->radius + kAbsoluteSlack;
        const double latitude = fence->latitude;
        const double longitude = normalizedLongitude(fence->longitude);

        // Every point nearer than the radius, and every shortest path to it, stays inside this box.
        const double latitudeHalf = reach / kMinMetresPerDegreeLatitude * kBoxMargin;
        const double poleward = std::abs(latitude) + latitudeHalf;
        if (poleward > kPolarLimitDegrees) {
            everywhere.push_back(index);
            continue;
        }
        const double longitudeHalf =
            reach / (kMinMetresPerDegreeLongitudeAtEquator * std::cos(poleward * kDegree)) * kBoxMargin;
        if (longitude - longitudeHalf <= -180.0 || longitude + longitudeHalf >= 180.0) {
            everywhere.push_back(index);
            continue;
        }

        // The flat metric at the centre, and how far the ellipsoid can stray from it over the box.
        LocalDisc& disc = local_[i];
        disc.latitude = latitude;
        disc.longitude = longitude;
        // Stored as floats to keep the record within one cache line; the ratios below are
        // taken against the stored values, so the rounding costs nothing in rigour.
        disc.metresPerDegreeLatitude = static_cast<float>(meridianRadius(latitude) * kDegree);
        disc.metresPerDegreeLongitude = static_cast<float>(parallelRadius(latitude) * kDegree);
        const double scaleLatitude = disc.metresPerDegreeLatitude / kDegree;
        const double scaleLongitude = disc.metresPerDegreeLongitude / kDegree;
        const double south = latitude - latitudeHalf, north = latitude + latitudeHalf;
        const double nearestEquator = (south <= 0.0 && north >= 0.0) ? 0.0 : std::min(std::abs(south), std::abs(north));
        const double farthestEquator = std::max(std::abs(south), std::abs(north));
        // M grows and N·cosφ shrinks towards the poles.
        const double low = std::min(meridianRadius(nearestEquator) / scaleLatitude,
                                    parallelRadius(farthestEquator) / scaleLongitude) *
                           (1.0 - kRelativeSlack);
        const double high = std::max(meridianRadius(farthestEquator) / scaleLatitude,
                                     parallelRadius(nearestEquator) / scaleLongitude) *
                            (1.0 + kRelativeSlack);
        const double inner = (fence->radius - kAbsoluteSlack) / high;
        disc.insideBelow = inner > 0.0 ? floatAtMost(square(inner)) : -1.0f;
        disc.outsideFrom = floatAtLeast(square(reach / low));
        extents.push_back({index, latitudeHalf, longitudeHalf});
        radii.push_back(fence->radius);
    }

    if (!radii.empty()) {
        // Small cells for the typical fence, but coarse enough that nearly all of the
        // large ones still fit the grid rather than being checked on every query.
        const auto at = [&](double fraction) {
            auto position =
                radii.begin() + static_cast<std::ptrdiff_t>(fraction * static_cast<double>(radii.size() - 1));
            std::nth_element(radii.begin(), position, radii.end());
            return *position;
        };
        const double metres = std::max(kCellOverMedianRadius * at(0.5), at(0.99) / kLargeRadiusOverCell);
        cellDegrees_ = std::clamp(metres / kMinMetresPerDegreeLatitude, kMinCellDegrees, kMaxCellDegrees);
    }
    radii = {};
    columns_ = static_cast<std::uint64_t>(360.0 / cellDegrees_) + 2;

    struct Box {
        std::uint32_t index;
        std::int64_t firstRow, lastRow, firstColumn, lastColumn;
        std::int64_t cells() const { return (lastRow - firstRow + 1) * (lastColumn - firstColumn + 1); }
    };
    std::vector<Box> boxes;
    boxes.reserve(extents.size());
    for (const Extent& extent : extents) {
        const LocalDisc& disc = local_[extent.index];
        Box box{extent.index, gridIndex(disc.latitude - extent.latitudeHalf + 90.0, cellDegrees_),
                gridIndex(disc.latitude + extent.latitudeHalf + 90.0, cellDegrees_),
                gridIndex(disc.longitude - extent.longitudeHalf + 180.0, cellDegrees_),
                gridIndex(disc.longitude + extent.longitudeHalf + 180.0, cellDegrees_)};
        if (box.cells() > kMaxCellsPerFence)
            everywhere.push_back(extent.index);
        else
            boxes.push_back(box);
    }
    extents = {};
    const bool anyPolygonBox = !polygonBoxes.empty();
    for (const PolygonBox& polygon : polygonBoxes) {
        Box box{polygon.index, gridIndex(polygon.south + 90.0, cellDegrees_), gridIndex(polygon.north + 90.0, cellDegrees_),
                gridIndex(polygon.west + 180.0, cellDegrees_), gridIndex(polygon.east + 180.0, cellDegrees_)};
        if (box.cells() > kMaxCellsPerFence)
            everywhere.push_back(polygon.index);
        else
            boxes.push_back(box);
    }
    polygonBoxes = {};
    // Placements go in list order, which the cell lists keep.
    if (anyPolygonBox)
        std::sort(boxes.begin(), boxes.end(), [](const Box& a, const Box& b) { return a.index < b.index; });

    // Keep memory proportional to the list: if the boxes together would need too many
    // entries, the largest ones are checked on every query instead.
    const std::size_t budget = kEntryBudgetPerFence * count + 65536;
    std::size_t total = 0;
    for (const Box& box : boxes) total += static_cast<std::size_t>(box.cells());
    if (total > budget) {
        std::vector<std::int64_t> sizes;
        sizes.reserve(boxes.size());
        for (const Box& box : boxes) sizes.push_back(box.cells());
        std::sort(sizes.begin(), sizes.end(), std::greater<>());
        std::int64_t threshold = 0;
        for (std::int64_t size : sizes) {
            if (total <= budget) break;
            total -= static_cast<std::size_t>(size);
            threshold = size;
        }
        std::erase_if(boxes, [&](const Box& box) {
            if (box.cells() < threshold) return false;
            everywhere.push_back(box.index);
            return true;
        });
        total = 0;
        for (const Box& box : boxes) total += static_cast<std::size_t>(box.cells());
    }

    // Rows and columns relative to the lowest ones in use, so both fit 32 bits and the
    // counting passes below need only arrays as wide as the area the fences cover.
    std::int64_t lowestRow = std::numeric_limits<std::int64_t>::max(), highestRow = 0;
    std::int64_t lowestColumn = std::numeric_limits<std::int64_t>::max(), highestColumn = 0;
    for (const Box& box : boxes) {
        lowestRow = std::min(lowestRow, box.firstRow);
        highestRow = std::max(highestRow, box.lastRow);
        lowestColumn = std::min(lowestColumn, box.firstColumn);
        highestColumn = std::max(highestColumn, box.lastColumn);
    }
    // Calls emit(row, column, entry) for every cell each box really reaches, box by
    // box in list order, rows and columns relative to the lowest in use.
    const double halfCell = cellDegrees_ / 2.0 * (1.0 + 1e-9) + 1e-12; // a position's cell may be off by a rounding
    const auto forEachPlacement = [&](auto emit) {
        for (const Box& box : boxes) {
            const LocalDisc& disc = local_[box.index];
            if (disc.metresPerDegreeLatitude == 0.0f) {
                // A polygon: a small one is placed only in the cells it reaches, and a
                // cell wholly inside it is marked so; a large one (its own edge grid
                // answers fast) in every cell of its box.
                const FenceGeometry& geometry = *fences_[box.index]->geometry;
                const bool classify = geometry.positionCount() <= kClassifiedPolygonPositions;
                const double margin = cellDegrees_ * 1e-9 + 1e-12;
                for (std::int64_t row = box.firstRow; row <= box.lastRow; ++row)
                    for (std::int64_t column = box.firstColumn; column <= box.lastColumn; ++column) {
                        std::uint32_t entry = box.index << 1;
                        if (classify) {
                            const double south = -90.0 + static_cast<double>(row) * cellDegrees_;
                            const double west = -180.0 + static_cast<double>(column) * cellDegrees_;
                            const auto side = geometry.rectangleSide(west - margin, south - margin,
                                                                     west + cellDegrees_ + margin,
                                                                     south + cellDegrees_ + margin);
                            if (side == FenceGeometry::RectangleSide::Outside) continue;
                            if (side == FenceGeometry::RectangleSide::Inside) entry |= 1u;
                        }
                        emit(static_cast<std::uint32_t>(row - lowestRow),
                             static_cast<std::uint32_t>(column - lowestColumn), entry);
                    }
                continue;
            }
            const double scaleLatitude = disc.metresPerDegreeLatitude, scaleLongitude = disc.metresPerDegreeLongitude;
            const double cellReach = halfCell * std::hypot(scaleLatitude, scaleLongitude);
            const double insideBelow = disc.insideBelow, outsideFrom = disc.outsideFrom;
            const double surelyInside = insideBelow > 0.0 ? std::sqrt(insideBelow) * (1.0 - kRelativeSlack) : -1.0;
            const double surelyOutside = std::sqrt(outsideFrom) * (1.0 + kRelativeSlack);
            for (std::int64_t row = box.firstRow; row <= box.lastRow; ++row) {
                const double dy =
                    (-90.0 + (static_cast<double>(row) + 0.5) * cellDegrees_ - disc.latitude) * scaleLatitude;
                for (std::int64_t column = box.firstColumn; column <= box.lastColumn; ++column) {
                    const double dx =
                        (-180.0 + (static_cast<double>(column) + 0.5) * cellDegrees_ - disc.longitude) * scaleLongitude;
                    const double toCentre = std::sqrt(dx * dx + dy * dy);
                    if (toCentre - cellReach >= surelyOutside) continue; // the box's corners
                    const bool wholeCellInside = toCentre + cellReach < surelyInside;
                    emit(static_cast<std::uint32_t>(row - lowestRow), static_cast<std::uint32_t>(column - lowestColumn),
                         (box.index << 1) | (wholeCellInside ? 1u : 0u));
                }
            }
        }
    };
    const auto width = static_cast<std::uint64_t>(boxes.empty() ? 0 : highestColumn - lowestColumn + 1);
    const auto height = static_cast<std::uint64_t>(boxes.empty() ? 0 : highestRow - lowestRow + 1);
    if (!boxes.empty() && width * height <= total + (std::uint64_t{1} << 20)) {
        // The fences cover a compact area (one zone's do): the cells of the whole area
        // become a plain array, looked up without hashing, and each entry is placed
        // straight where it belongs after a counting pass. Nothing as large as the
        // entries themselves is needed on the side.
        std::vector<std::uint32_t> ends(width * height + 1, 0);
        forEachPlacement([&](std::uint32_t row, std::uint32_t column, std::uint32_t) { ++ends[row * width + column + 1]; });
        for (std::size_t cell = 1; cell < ends.size(); ++cell) ends[cell] += ends[cell - 1];
        entries_.resize(ends.back());
        forEachPlacement([&](std::uint32_t row, std::uint32_t column, std::uint32_t entry) {
            entries_[ends[row * width + column]++] = entry;
        });
        // Filling moved each cell's mark to where its entries end; shifted back by one
        // cell, the array gives every cell's first entry and the next cell's.
        for (std::size_t cell = ends.size() - 1; cell > 0; --cell) ends[cell] = ends[cell - 1];
        ends[0] = 0;
        grid_ = std::move(ends);
        gridRow_ = lowestRow;
        gridColumn_ = lowestColumn;
        gridWidth_ = width;
        gridHeight_ = height;
    } else if (!boxes.empty()) {
        // Fences spread thinly over a wide area: gather the placements and group them
        // by cell with two stable counting passes, by column and then by row, which
        // keep each cell's entries in list order.
        struct Placement {
            std::uint32_t row, column, entry;
        };
        std::vector<Placement> placed;
        placed.reserve(total);
        forEachPlacement([&](std::uint32_t row, std::uint32_t column, std::uint32_t entry) {
            placed.push_back({row, column, entry});
        });
        std::vector<Placement> scratch(placed.size());
        const auto countingPass = [](const std::vector<Placement>& from, std::vector<Placement>& to, std::size_t range,
                                     auto part) {
            std::vector<std::uint32_t> next(range + 1, 0);
            for (const Placement& placement : from) ++next[part(placement) + 1];
            for (std::size_t i = 1; i <= range; ++i) next[i] += next[i - 1];
            for (const Placement& placement : from) to[next[part(placement)]++] = placement;
        };
        countingPass(placed, scratch, width, [](const Placement& placement) { return placement.column; });
        countingPass(scratch, placed, height, [](const Placement& placement) { return placement.row; });
        scratch = {};

        std::size_t distinct = 0;
        for (std::size_t i = 0; i < placed.size(); ++i)
            if (i == 0 || placed[i].row != placed[i - 1].row || placed[i].column != placed[i - 1].column) ++distinct;
        entries_.reserve(placed.size());
        if (distinct > 0) {
            std::size_t slots = 16;
            while (slots < distinct * 2) slots *= 2;
            cells_.assign(slots, CellSlot{kEmptyKey, 0, 0});
            const std::uint64_t mask = slots - 1;
            for (std::size_t i = 0; i < placed.size();) {
                const std::uint32_t row = placed[i].row, column = placed[i].column;
                const auto begin = static_cast<std::uint32_t>(entries_.size());
                for (; i < placed.size() && placed[i].row == row && placed[i].column == column; ++i)
                    entries_.push_back(placed[i].entry);
                const std::uint64_t key = static_cast<std::uint64_t>(row + lowestRow) * columns_ +
                                          static_cast<std::uint64_t>(column + lowestColumn);
                std::uint64_t slot = mixKey(key) & mask;
                while (cells_[slot].key != kEmptyKey) slot = (slot + 1) & mask;
                cells_[slot] = CellSlot{key, begin, static_cast<std::uint32_t>(entries_.size())};
            }
        }
    }
    boxes = {};

    std::sort(everywhere.begin(), everywhere.end());
    everywhere_.reserve(everywhere.size());
    for (std::uint32_t index : everywhere) {
        const Fence& fence = *fences_[index];
        SphereDisc disc;
        disc.index = index;
        if (fence.geometry) { // decided by its box, then the geometry
            disc.insideBelow = -1.0;
            disc.outsideFrom = kInfinity;
            disc.box[0] = fence.geometry->south();
            disc.box[1] = fence.geometry->west();
            disc.box[2] = fence.geometry->north();
            disc.box[3] = fence.geometry->east();
            everywhere_.push_back(disc);
            continue;
        }
        double centre[3];
        unitVector(fence.latitude, normalizedLongitude(fence.longitude), centre);
        disc.x = centre[0];
        disc.y = centre[1];
        disc.z = centre[2];
        const SphereBounds bounds = sphereBounds(fence.radius);
        disc.insideBelow = bounds.insideBelow;
        disc.outsideFrom = bounds.outsideFrom;
        everywhere_.push_back(disc);
        everywhereCircles_ = true;
    }
}

const FenceIndex::CellSlot* FenceIndex::findCell(std::uint64_t key) const {
    if (cells_.empty()) return nullptr;
    const std::uint64_t mask = cells_.size() - 1;
    for (std::uint64_t slot = mixKey(key) & mask;; slot = (slot + 1) & mask) {
        const CellSlot& cell = cells_[slot];
        if (cell.key == key) return &cell;
        if (cell.key == kEmptyKey) return nullptr;
    }
}

bool FenceIndex::containsLocal(std::uint32_t index, double latitude, double longitude) const {
    const LocalDisc& disc = local_[index];
    if (disc.metresPerDegreeLatitude == 0.0f) {
        if (latitude < disc.latitude || longitude < disc.longitude ||
            latitude - disc.latitude > static_cast<double>(disc.insideBelow) ||
            longitude - disc.longitude > static_cast<double>(disc.outsideFrom))
            return false;
        return fences_[index]->geometry->contains(latitude, longitude);
    }
    const double dy = (latitude - disc.latitude) * static_cast<double>(disc.metresPerDegreeLatitude);
    const double dx = (longitude - disc.longitude) * static_cast<double>(disc.metresPerDegreeLongitude);
    const double distanceSquared = dx * dx + dy * dy;
    if (distanceSquared < static_cast<double>(disc.insideBelow)) return true;
    if (distanceSquared >= static_cast<double>(disc.outsideFrom)) return false;
    return exactlyInside(latitude, longitude, *fences_[index]);
}

bool FenceIndex::containsSphere(const SphereDisc& disc, const double (&unit)[3], double latitude,
                                double longitude) const {
    if (disc.box[1] <= disc.box[3]) {
        if (latitude < disc.box[0] || latitude > disc.box[2] || longitude < disc.box[1] || longitude > disc.box[3])
            return false;
        return fences_[disc.index]->geometry->contains(latitude, longitude);
    }
    const double chord = chordSquaredBetween(unit, disc.x, disc.y, disc.z);
    if (chord < disc.insideBelow) return true;
    if (chord >= disc.outsideFrom) return false;
    return exactlyInside(latitude, longitude, *fences_[disc.index]);
}

FenceList FenceIndex::insideFences(double latitude, double longitude) const {
    FenceList inside;
    if (!validPosition(latitude, longitude)) return inside;
    if (longitude < -180.0 || longitude >= 180.0) longitude = normalizedLongitude(longitude);

    const std::uint32_t* entry = nullptr;
    const std::uint32_t* entriesEnd = nullptr;
    const auto row = gridIndex(latitude + 90.0, cellDegrees_);
    const auto column = gridIndex(longitude + 180.0, cellDegrees_);
    if (!grid_.empty()) {
        const auto gridRow = static_cast<std::uint64_t>(row - gridRow_);
        const auto gridColumn = static_cast<std::uint64_t>(column - gridColumn_);
        if (gridRow < gridHeight_ && gridColumn < gridWidth_) { // negatives wrap to huge
            const std::size_t cell = gridRow * gridWidth_ + gridColumn;
            entry = entries_.data() + grid_[cell];
            entriesEnd = entries_.data() + grid_[cell + 1];
        }
    } else if (const CellSlot* cell =
                   findCell(static_cast<std::uint64_t>(row) * columns_ + static_cast<std::uint64_t>(column))) {
        entry = entries_.data() + cell->begin;
        entriesEnd = entries_.data() + cell->end;
    }

    // The records and fences we touch are scattered over megabytes; fetching a few
    // ahead overlaps the cache misses.
    constexpr std::ptrdiff_t kPrefetchAhead = 32;
    double unit[3] = {0.0, 0.0, 0.0};
    if (everywhereCircles_) unitVector(latitude, longitude, unit);
    auto other = everywhere_.begin();
    const auto othersEnd = everywhere_.end();

    // Decide first, copy after: each shared_ptr copy is a locked increment that stalls
    // the loads behind it, so the cheap tests run as a tight loop of their own.
    // Most positions are in a few fences: a small buffer on the stack saves an allocation.
    SmallHits hits;
    // Both sequences ascend by index, so merging them keeps the list's order.
    for (; entry != entriesEnd; ++entry) {
        if (entriesEnd - entry > kPrefetchAhead) __builtin_prefetch(&local_[entry[kPrefetchAhead] >> 1]);
        const std::uint32_t index = *entry >> 1;
        for (; other != othersEnd && other->index < index; ++other)
            if (containsSphere(*other, unit, latitude, longitude)) hits.push_back(other->index);
        if ((*entry & 1u) != 0 || containsLocal(index, latitude, longitude)) hits.push_back(index);
    }
    for (; other != othersEnd; ++other)
        if (containsSphere(*other, unit, latitude, longitude)) hits.push_back(other->index);

    inside.reserve(hits.size());
    const std::size_t count = hits.size();
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t ahead = static_cast<std::size_t>(kPrefetchAhead);
        if (i + 2 * ahead < count) __builtin_prefetch(&fences_[hits[i + 2 * ahead]]);
        if (i + ahead < count) __builtin_prefetch(fences_[hits[i + ahead]].get());
        inside.push_back(fences_[hits[i]]);
    }
    return inside;
}

FenceList FenceIndex::fencesNear(double latitude, double longitude, double margin) const {
    FenceList near;
    if (!validPosition(latitude, longitude) || !(margin >= 0.0) || !std::isfinite(margin)) return near;
    longitude = normalizedLongitude(longitude);

    // Every fence whose disc comes within `margin` has a point inside it within
    // `margin` of the position, and the grid lists the fence in that point's cell: so
    // the cells of the box around the position hold every answer.
    const double reach = margin + kAbsoluteSlack;
    const double latitudeHalf = reach / kMinMetresPerDegreeLatitude * kBoxMargin;
    const double poleward = std::abs(latitude) + latitudeHalf;
    std::vector<std::uint32_t> candidates;
    bool scanAll = poleward > kPolarLimitDegrees;
    if (!scanAll) {
        const double longitudeHalf =
            reach / (kMinMetresPerDegreeLongitudeAtEquator * std::cos(poleward * kDegree)) * kBoxMargin;
        const auto firstRow = gridIndex(latitude - latitudeHalf + 90.0, cellDegrees_);
        const auto lastRow = gridIndex(latitude + latitudeHalf + 90.0, cellDegrees_);
        const auto firstColumn = gridIndex(longitude - longitudeHalf + 180.0, cellDegrees_);
        const auto lastColumn = gridIndex(longitude + longitudeHalf + 180.0, cellDegrees_);
        constexpr std::int64_t kMostCells = 256;
        // Near the antimeridian the columns wrap; scanning everything is simpler there.
        scanAll = (lastRow - firstRow + 1) * (lastColumn - firstColumn + 1) > kMostCells ||
                  longitude - longitudeHalf <= -180.0 || longitude + longitudeHalf >= 180.0;
        for (auto row = firstRow; !scanAll && row <= lastRow; ++row) {
            for (auto column = firstColumn; column <= lastColumn; ++column) {
                const std::uint32_t* entry = nullptr;
                const std::uint32_t* entriesEnd = nullptr;
                if (!grid_.empty()) {
                    const auto gridRow = static_cast<std::uint64_t>(row - gridRow_);
                    const auto gridColumn = static_cast<std::uint64_t>(column - gridColumn_);
                    if (gridRow < gridHeight_ && gridColumn < gridWidth_) {
                        const std::size_t cell = gridRow * gridWidth_ + gridColumn;
                        entry = entries_.data() + grid_[cell];
                        entriesEnd = entries_.data() + grid_[cell + 1];
                    }
                } else if (const CellSlot* cell = findCell(static_cast<std::uint64_t>(row) * columns_ +
                                                           static_cast<std::uint64_t>(column))) {
                    entry = entries_.data() + cell->begin;
                    entriesEnd = entries_.data() + cell->end;
                }
                for (; entry != entriesEnd; ++entry) candidates.push_back(*entry >> 1);
            }
        }
        for (const SphereDisc& disc : everywhere_) candidates.push_back(disc.index);
    }
    if (scanAll) {
        candidates.resize(fences_.size());
        for (std::size_t i = 0; i < fences_.size(); ++i) candidates[i] = static_cast<std::uint32_t>(i);
    }
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
    for (std::uint32_t index : candidates) {
        const auto& fence = fences_[index];
        if (fence && signedDistanceToRim(*fence, latitude, longitude) < margin) near.push_back(fence);
    }
    return near;
}

} // namespace bvgeo
