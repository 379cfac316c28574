#include "zone/ZoneBuilder.hpp"

#include "zone/ZoneBuilderChecks.hpp"
#include "zone/ZoneBuilderDirectory.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace bvgeo {

namespace {

ZoneBuildResult failure(std::string error) {
    ZoneBuildResult result;
    result.error = std::move(error);
    return result;
}

} // namespace

ZoneBuildResult buildZones(const std::string& inputPath, const std::string& outDir, const ZoneBuildOptions& options) {
    try {
        if (!usableInterval(options.interval))
            return failure("zone interval " + numberText(options.interval) + " is outside [" +
                           numberText(kMinZoneInterval) + ", " + numberText(kMaxZoneInterval) + "] degrees");
        if (options.defaultRadius && !isFenceRadius(*options.defaultRadius))
            return failure("default radius " + numberText(*options.defaultRadius) +
                           " is not a positive number of metres");

        std::ifstream in(inputPath, std::ios::binary);
        if (!in) return failure("cannot read " + inputPath + ": " + std::strerror(errno));
        std::ostringstream buffer;
        buffer << in.rdbuf();
        if (in.bad()) return failure("cannot read " + inputPath);
        const std::string text = std::move(buffer).str();

        ZoneFenceList read = readZoneFences(text, inputPath, options);
        ZoneBuildResult result;
        result.warnings = std::move(read.warnings);
        if (!read.ok) {
            result.error = std::move(read.error);
            return result;
        }

        // Each fence is encoded once, then joined into every file that lists it.
        std::vector<std::string> encoded;
        encoded.reserve(read.fences.size());
        std::map<ZoneCell, std::vector<std::size_t>> byCell;
        for (std::size_t i = 0; i < read.fences.size(); ++i) {
            const Fence& fence = read.fences[i];
            encoded.push_back(zoneFileEntry(fence));
            auto cells = cellsForCircle(fence.latitude, fence.longitude, fence.radius, options.interval);
            if (cells.size() > 64)
                result.warnings.push_back(inputPath + ": fence " + jsonText(fence.id) + " (radius " +
                                          numberText(fence.radius) + " m) reaches " + std::to_string(cells.size()) +
                                          " cells");
            for (auto cell : cells) byCell[cell].push_back(i);
        }

        const std::filesystem::path directory(outDir);
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        if (error || !std::filesystem::is_directory(directory, error))
            return failure("cannot create directory " + outDir + (error ? ": " + error.message() : ""));

        std::set<std::string> written;
        for (const auto& [cell, members] : byCell) {
            std::string name = cellName(cell, options.interval);
            std::string problem;
            switch (writeZoneFile((directory / name).string(), zoneFileText(encoded, members), problem)) {
            case ZoneFileWrite::Unchanged: ++result.unchanged; break;
            case ZoneFileWrite::Written: break;
            case ZoneFileWrite::Failed: result.error = problem; return result;
            }
            written.insert(std::move(name));
            ++result.cells;
            result.fenceEntries += members.size();
        }
        result.staleRemoved = removeStaleZoneFiles(directory, written, result.warnings);

        result.fences = read.fences.size();
        result.ok = true;
        return result;
    } catch (const std::exception& error) {
        return failure(inputPath + ": " + error.what());
    }
}

} // namespace bvgeo
