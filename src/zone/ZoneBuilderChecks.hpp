// The zone builder's rules for what a fence and a grid may be, and the way its
// messages write numbers and names. Pure functions; any thread.
#pragma once

#include <string>

namespace bvgeo {

// Positive, finite and no more than half the earth's circumference.
bool isFenceRadius(double radius);

// Why the centre is not on the earth, or empty when it is.
std::string checkPlace(double latitude, double longitude);

// Within [kMinZoneInterval, kMaxZoneInterval].
bool usableInterval(double interval);

// Shortest text that reads back as the same number: 95 -> "95", 0.1 -> "0.1".
std::string numberText(double value);

// Quoted for a message; bytes that are not UTF-8 show as U+FFFD.
std::string jsonText(const std::string& text);

} // namespace bvgeo
