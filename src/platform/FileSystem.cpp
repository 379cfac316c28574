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

} // namespace bvgeo
