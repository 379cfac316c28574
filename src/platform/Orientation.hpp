// Exact orientation of three points in the plane: on which side of the directed line
// a→b the point c lies. Decided in double arithmetic when the rounding cannot change
// the sign (nearly always), and otherwise with error-free transformations, so the
// answer is the sign of the exact determinant of the doubles given. Coordinates
// must be finite and either zero or at least 1e-100 in magnitude (products of
// differences must not underflow). Pure functions; any thread.
#pragma once

#include <cmath>

namespace bvgeo {

// The exact sign, for when the double evaluation cannot tell.
int exactOrientation(double ax, double ay, double bx, double by, double cx, double cy);

// +1 when c lies to the left of a→b, -1 to the right, 0 on the line.
inline int orientation(double ax, double ay, double bx, double by, double cx, double cy) {
    const double left = (bx - ax) * (cy - ay);
    const double right = (by - ay) * (cx - ax);
    const double det = left - right;
    // The classic bound for this evaluation order (3ε + 16ε²) on |left| + |right|.
    constexpr double kEpsilon = 1.1102230246251565e-16; // 2^-53
    constexpr double kBound = (3.0 + 16.0 * kEpsilon) * kEpsilon;
    const double bound = kBound * (std::fabs(left) + std::fabs(right));
    if (det > bound) return 1;
    if (-det > bound) return -1;
    if (left == 0.0 && right == 0.0) return 0; // a factor is an exact zero
    return exactOrientation(ax, ay, bx, by, cx, cy);
}

} // namespace bvgeo
