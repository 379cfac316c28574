// A fresh directory under the system's temporary folder for a benchmark's files,
// removed at scope exit.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace bvgeo::bench {

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        auto pattern = (std::filesystem::temp_directory_path() / "bvgeo-bench-XXXXXX").string();
        if (char* made = mkdtemp(pattern.data())) path_ = made;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

} // namespace bvgeo::bench
