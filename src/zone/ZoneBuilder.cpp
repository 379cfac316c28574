#include "zone/ZoneBuilder.hpp"

#include "zone/ZoneBuilderChecks.hpp"
#include "zone/ZoneBuilderClip.hpp"
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

ZoneBuildResult buildZoneTexts(const std::string& inputPath, const ZoneBuildOptions& options,
                               std::map<std::string, std::string>& files) {
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

        // A circle is encoded once, then joined into every file that lists it; a
        // polygon fence has an entry of its own per cell: its part there.
        std::vector<std::string> encoded;
        encoded.reserve(read.fences.size());
        std::map<ZoneCell, std::vector<std::size_t>> byCell;
        for (std::size_t i = 0; i < read.fences.size(); ++i) {
            const Fence& fence = read.fences[i];
            if (i < read.shapes.size() && !read.shapes[i].polygonEnds.empty()) {
                for (auto& [cell, piece] : clipToCells(read.shapes[i], options.interval)) {
                    if (auto made = FenceGeometry::make(piece); !made.geometry) {
                        result.warnings.push_back(inputPath + ": fence " + jsonText(fence.id) + ": its part in " +
                                                  cellName(cell, options.interval) + " is left out: it " + made.problem);
                        continue;
                    }
                    const EnclosingCircle circle = enclosingCircle(piece);
                    Fence part = fence;
                    part.latitude = circle.latitude;
                    part.longitude = circle.longitude;
                    part.radius = circle.radius;
                    byCell[cell].push_back(encoded.size());
                    encoded.push_back(zoneFileEntry(part, geometryJson(piece, read.shapes[i].multi)));
                }
                continue;
            }
            const std::size_t entry = encoded.size();
            encoded.push_back(zoneFileEntry(fence));
            auto cells = cellsForCircle(fence.latitude, fence.longitude, fence.radius, options.interval);
            if (cells.size() > 64)
                result.warnings.push_back(inputPath + ": fence " + jsonText(fence.id) + " (radius " +
                                          numberText(fence.radius) + " m) reaches " + std::to_string(cells.size()) +
                                          " cells");
            for (auto cell : cells) byCell[cell].push_back(entry);
        }
        for (const auto& [cell, members] : byCell) {
            files[cellName(cell, options.interval)] = zoneFileText(encoded, members);
            result.fenceEntries += members.size();
        }
        result.cells = files.size();
        result.fences = read.fences.size();
        result.ok = true;
        return result;
    } catch (const std::exception& error) {
        return failure(inputPath + ": " + error.what());
    }
}

ZoneBuildResult buildZones(const std::string& inputPath, const std::string& outDir, const ZoneBuildOptions& options) {
    std::map<std::string, std::string> files;
    ZoneBuildResult result = buildZoneTexts(inputPath, options, files);
    if (!result.ok) return result;
    try {
        const std::filesystem::path directory(outDir);
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        if (error || !std::filesystem::is_directory(directory, error)) {
            ZoneBuildResult failed = failure("cannot create directory " + outDir + (error ? ": " + error.message() : ""));
            failed.warnings = std::move(result.warnings);
            return failed;
        }
        std::set<std::string> written;
        for (const auto& [name, contents] : files) {
            std::string problem;
            switch (writeZoneFile((directory / name).string(), contents, problem)) {
            case ZoneFileWrite::Unchanged: ++result.unchanged; break;
            case ZoneFileWrite::Written: break;
            case ZoneFileWrite::Failed: result.error = problem; result.ok = false; return result;
            }
            written.insert(name);
        }
        result.staleRemoved = removeStaleZoneFiles(directory, written, result.warnings);
        return result;
    } catch (const std::exception& error) {
        return failure(inputPath + ": " + error.what());
    }
}

} // namespace bvgeo
