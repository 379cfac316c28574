// Keeping a directory of zone files in step with a build: each file replaced whole
// (readers see the old file or the new one, never a part) unless it already holds
// the same text, and zone files no cell needs any more removed. Runs on the
// caller's thread; one build per directory at a time.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace bvgeo {

enum class ZoneFileWrite { Written, Unchanged, Failed };

// Puts `contents` at `path` unless it already holds exactly that. On failure `problem` says why.
ZoneFileWrite writeZoneFile(const std::string& path, const std::string& contents, std::string& problem);

// Removes the zone files in `directory` whose names are not in `written`, and the
// temporary files of a build that was killed before it could rename them. Returns
// how many zone files went; adds a warning for each that could not.
std::size_t removeStaleZoneFiles(const std::filesystem::path& directory, const std::set<std::string>& written,
                                 std::vector<std::string>& warnings);

} // namespace bvgeo
