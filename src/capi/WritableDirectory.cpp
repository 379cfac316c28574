#include "capi/WritableDirectory.hpp"

#include <filesystem>
#include <fstream>

namespace bvgeo::capi {

std::optional<std::string> prepareWritableDirectory(const std::string& directory, const std::string& role) {
    const std::string named = "the " + role + " " + directory;
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) return "cannot create " + named + ": " + error.message();
    if (!std::filesystem::is_directory(directory)) return named + " is not a directory";
    // Writing a file is the only reliable test (permissions, read-only mounts, ACLs).
    const auto probe = std::filesystem::path(directory) / ".bvgeo-write-test";
    {
        std::ofstream file(probe);
        if (!file || !(file << "ok") || !file.flush()) return "cannot write to " + named;
    }
    std::filesystem::remove(probe, error);
    return std::nullopt;
}

} // namespace bvgeo::capi
