// An NMEA 0183 log as `bvgeo replay` reads it, with a date given for logs that
// carry none or without one (chosen by the input's length), and a `now` that makes
// fixes in the future count as bad times, or none.
#include "track/NmeaReader.hpp"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    bvgeo::TrackReadOptions options;
    if (size % 2 == 0) options.date = "2014-08-15";
    if (size % 3 == 0) options.now = 1'700'000'000.0;
    bvgeo::TrackFixCollector fixes("fuzz.nmea", bvgeo::TrackFormat::Nmea, options, true);
    bvgeo::readNmea(content, options, fixes);
    const auto result = fixes.finish();
    for (std::size_t i = 1; i < result.fixes.size(); ++i)
        if (!(result.fixes[i].timestamp > result.fixes[i - 1].timestamp)) __builtin_trap();
    return 0;
}
