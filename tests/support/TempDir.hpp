// A directory of the test's own under the system's temp directory: a fresh unique
// name each time (tests run in parallel processes), removed with everything in it.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace bvgeo::testing {

class TempDir {
public:
    explicit TempDir(const std::string& prefix = "bvgeo") {
        std::string pattern = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed for " + pattern);
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

    // Writes `text` to `name` inside; its full path.
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path_ / name, std::ios::binary) << text;
        return (path_ / name).string();
    }

private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::filesystem::path& file) {
    std::stringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

// Names of the entries in `directory` that start with `prefix` and end with
// `suffix`, sorted; none when it does not exist.
inline std::vector<std::string> filesIn(const std::filesystem::path& directory, const std::string& prefix = "",
                                        const std::string& suffix = "") {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        const auto name = entry.path().filename().string();
        if (name.starts_with(prefix) && name.ends_with(suffix) && name.size() >= prefix.size() + suffix.size())
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace bvgeo::testing
