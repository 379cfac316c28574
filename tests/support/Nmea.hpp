// NMEA sentences for test input, written as plain text with the checksum worked out.
#pragma once

#include <cstdio>
#include <string>

namespace bvgeo::testing {

// "$<body>*hh", hh the XOR of the body's bytes.
inline std::string nmeaSentence(const std::string& body) {
    unsigned checksum = 0;
    for (const char c : body) checksum ^= static_cast<unsigned char>(c);
    char text[4];
    std::snprintf(text, sizeof text, "%02X", checksum & 0xFFu);
    return "$" + body + "*" + text;
}

} // namespace bvgeo::testing
