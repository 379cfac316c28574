// A CSV track as `bvgeo replay` reads it: any bytes end in fixes or a failed read.
#include "track/CsvReader.hpp"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    bvgeo::TrackFixCollector fixes("fuzz.csv", bvgeo::TrackFormat::Csv, {}, false);
    bvgeo::readCsv(content, fixes);
    const auto result = fixes.finish();
    for (std::size_t i = 1; i < result.fixes.size(); ++i)
        if (!(result.fixes[i].timestamp > result.fixes[i - 1].timestamp)) __builtin_trap();
    return 0;
}
