// Exact orientation of three points in the plane: on which side of the directed line
// a→b the point c lies. Decided in double arithmetic when the rounding cannot change
// the sign (nearly always), and otherwise with error-free transformations, so the
// answer is the sign of the exact determinant of the doubles given. Coordinates
// must be finite and either zero or at least 1e-100 in magnitude (products of
// differences must not underflow). Pure functions; any thread.
#pragma once

namespace bvgeo {

// +1 when c lies to the left of a→b, -1 to the right, 0 on the line.
int orientation(double ax, double ay, double bx, double by, double cx, double cy);

} // namespace bvgeo
