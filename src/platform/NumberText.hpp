// Decimal text of numbers as the library writes them into log lines.
#pragma once


#include <string>

namespace bvgeo {

// The shortest text that reads back as the same double, with ".0" on whole
// numbers and an exponent (e.g. "1e-05", "1e+16") for magnitudes below 1e-4 or
// from 2^53 up: -23.5 -> "-23.5", 0 -> "0.0", 51.0 -> "51.0".
std::string doubleText(double value);

} // namespace bvgeo
