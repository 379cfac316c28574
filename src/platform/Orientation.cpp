#include "platform/Orientation.hpp"

#include <cmath>
#include <cstddef>
#include <initializer_list>

namespace bvgeo {
namespace {

// x + y == a + b exactly, |y| <= ulp(x) / 2.
inline void twoSum(double a, double b, double& x, double& y) {
    x = a + b;
    const double virtualB = x - a;
    const double virtualA = x - virtualB;
    y = (a - virtualA) + (b - virtualB);
}

// x + y == a * b exactly (no underflow).
inline void twoProduct(double a, double b, double& x, double& y) {
    x = a * b;
    y = std::fma(a, b, -x);
}

// Adds b to the nonoverlapping expansion e[0..n) (increasing magnitude), keeping it
// nonoverlapping; returns the new length. Zero components are dropped.
std::size_t growExpansion(double* e, std::size_t n, double b) {
    double q = b;
    std::size_t out = 0;
    for (std::size_t i = 0; i < n; ++i) {
        double sum, error;
        twoSum(q, e[i], sum, error);
        q = sum;
        if (error != 0.0) e[out++] = error;
    }
    if (q != 0.0) e[out++] = q;
    return out;
}

} // namespace

// Sign of (bx-ax)(cy-ay) - (by-ay)(cx-ax), computed exactly.
int exactOrientation(double ax, double ay, double bx, double by, double cx, double cy) {
    double d[4][2]; // each difference as an exact pair (value, error)
    twoSum(bx, -ax, d[0][0], d[0][1]);
    twoSum(cy, -ay, d[1][0], d[1][1]);
    twoSum(by, -ay, d[2][0], d[2][1]);
    twoSum(cx, -ax, d[3][0], d[3][1]);
    double sum[32];
    std::size_t n = 0;
    for (int sign : {1, -1}) {
        const double* u = sign > 0 ? d[0] : d[2];
        const double* v = sign > 0 ? d[1] : d[3];
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 2; ++j) {
                double high, low;
                twoProduct(u[i], v[j], high, low);
                n = growExpansion(sum, n, sign * low);
                n = growExpansion(sum, n, sign * high);
            }
    }
    // Nonoverlapping with increasing magnitude: the last component carries the sign.
    if (n == 0) return 0;
    return sum[n - 1] > 0.0 ? 1 : -1;
}


} // namespace bvgeo
