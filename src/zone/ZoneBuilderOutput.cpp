#include "zone/ZoneBuilderOutput.hpp"

#include <nlohmann/json.hpp>

#include <numeric>

namespace bvgeo {

std::string zoneFileEntry(const Fence& fence) {
    // Keys in the order a person reading a zone file expects them.
    const nlohmann::ordered_json entry = {
        {"_id", fence.id},
        {"name", fence.name},
        {"location", {{"type", "Point"}, {"coordinates", {fence.longitude, fence.latitude}}}},
        {"radius", fence.radius},
        {"content_ids", fence.content_ids}};
    return entry.dump();
}

std::string zoneFileEntry(const Fence& fence, const std::string& geometryJson) {
    std::string entry = zoneFileEntry(fence);
    entry.pop_back(); // the closing brace
    return entry + ",\"geometry\":" + geometryJson + "}";
}

std::string zoneFileText(const std::vector<std::string>& entries, const std::vector<std::size_t>& members) {
    std::string contents = "{\"fences\":[";
    for (std::size_t n = 0; n < members.size(); ++n) {
        if (n) contents += ',';
        contents += entries[members[n]];
    }
    contents += "]}\n";
    return contents;
}

std::string zoneFileText(const std::vector<Fence>& fences) {
    std::vector<std::string> entries;
    entries.reserve(fences.size());
    for (const auto& fence : fences) entries.push_back(zoneFileEntry(fence));
    std::vector<std::size_t> all(fences.size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    return zoneFileText(entries, all);
}

} // namespace bvgeo
