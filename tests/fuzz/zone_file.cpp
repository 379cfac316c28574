// A zone file body as the download reads it: decoded event by event into fences.
// Any bytes end in fences or in a decoding failure, with memory bounded by the body.
#include "zone/ZoneFileReader.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    bvgeo::ZoneFileReader reader;
    nlohmann::json::sax_parse(body, &reader);
    for (const auto& fence : reader.takeFences())
        if (!fence) __builtin_trap();
    return 0;
}
