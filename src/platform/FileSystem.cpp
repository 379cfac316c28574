#include <bvgeo/platform/FileSystem.hpp>

namespace bvgeo {

std::string appendPathComponent(const std::string& directory, const std::string& name) {
    if (directory.empty()) return name;
    auto dirEnd = directory.find_last_not_of('/');
    auto nameStart = name.find_first_not_of('/');
    // dirEnd == npos means the directory is the root ("/" or "//").
    std::string joined = dirEnd == std::string::npos ? std::string() : directory.substr(0, dirEnd + 1);
    joined += '/';
    if (nameStart != std::string::npos) joined.append(name, nameStart, std::string::npos);
    return joined;
}

std::optional<std::string> moveFileAside(FileSystem& files, const std::string& path, const std::string& stamp,
                                         const std::vector<std::string>& companions, std::string* error) {
    return moveFileAside(files, path, "corrupt", stamp, companions, error);
}

std::optional<std::string> moveFileAside(FileSystem& files, const std::string& path, const std::string& kind,
                                         const std::string& stamp, const std::vector<std::string>& companions,
                                         std::string* error) {
    const auto slash = path.find_last_of('/');
    const auto nameStart = slash == std::string::npos ? 0 : slash + 1;
    auto dot = path.find_last_of('.');
    if (dot == std::string::npos || dot <= nameStart) dot = path.size(); // no extension (or a dot file)
    const std::string stem = path.substr(0, dot), extension = path.substr(dot);

    std::string target;
    FileResult moved = FileResult::failure("no free name");
    for (int attempt = 1; attempt <= 100 && !moved; ++attempt) {
        target = stem + "." + kind + "-" + stamp + (attempt > 1 ? "-" + std::to_string(attempt) : "") + extension;
        if (files.fileExists(target)) continue;
        moved = files.moveItem(path, target);
        if (!moved && files.fileExists(path) && !files.fileExists(target)) break; // not a name clash
    }
    if (!moved) {
        if (error) *error = moved.error;
        return std::nullopt;
    }
    for (const auto& suffix : companions) {
        if (!files.fileExists(path + suffix)) continue;
        if (!files.moveItem(path + suffix, target + suffix)) files.removeItem(path + suffix);
    }
    return target;
}

} // namespace bvgeo
