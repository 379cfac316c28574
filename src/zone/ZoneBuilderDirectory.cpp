#include "zone/ZoneBuilderDirectory.hpp"

#include <cerrno>
#include <cstring>
#include <regex>
#include <fcntl.h>
#include <unistd.h>

namespace bvgeo {

namespace {

// True when `path` already holds exactly `contents`.
bool holds(const std::string& path, const std::string& contents) {
    int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    std::string existing(contents.size() + 1, '\0');  // one byte more, to notice a longer file
    std::size_t got = 0;
    while (got < existing.size()) {
        ssize_t n = ::read(file, existing.data() + got, existing.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    ::close(file);
    return got == contents.size() && existing.compare(0, got, contents) == 0;
}

// Replaces `path` so that readers see the old file or the new one, never a part.
// No fsync: a build is simply run again after a crash, and syncing each of tens of
// thousands of files would make it take minutes.
std::string writeWhole(const std::string& path, const std::string& contents) {
    auto slash = path.find_last_of('/');
    std::string temporary = path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".tmp-" +
                            std::to_string(::getpid());
    auto fail = [&](const char* what, int error) {
        ::unlink(temporary.c_str());
        return std::string("cannot ") + what + " " + temporary + ": " + std::strerror(error);
    };
    int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) return std::string("cannot create ") + temporary + ": " + std::strerror(errno);
    std::size_t done = 0;
    while (done < contents.size()) {
        ssize_t n = ::write(file, contents.data() + done, contents.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            int error = errno;
            ::close(file);
            return fail("write", error);
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(file) != 0) return fail("write", errno);
    if (::rename(temporary.c_str(), path.c_str()) != 0) return fail("rename", errno);
    return {};
}

bool isZoneFileName(const std::string& name) {
    static const std::regex kZoneName("zone_-?[0-9]+_-?[0-9]+\\.json");
    return std::regex_match(name, kZoneName);
}

// Temporary files of a build that was killed before it could rename them.
bool isLeftoverName(const std::string& name) {
    static const std::regex kLeftover("\\.zone_-?[0-9]+_-?[0-9]+\\.json\\.tmp-[0-9]+");
    return std::regex_match(name, kLeftover);
}

} // namespace

ZoneFileWrite writeZoneFile(const std::string& path, const std::string& contents, std::string& problem) {
    // An unchanged file keeps its modification time, and with it the
    // Last-Modified that lets devices revalidate it cheaply.
    if (holds(path, contents)) return ZoneFileWrite::Unchanged;
    problem = writeWhole(path, contents);
    return problem.empty() ? ZoneFileWrite::Written : ZoneFileWrite::Failed;
}

std::size_t removeStaleZoneFiles(const std::filesystem::path& directory, const std::set<std::string>& written,
                                 std::vector<std::string>& warnings) {
    // Listed first and removed after: removing while listing may skip entries.
    std::error_code error;
    std::vector<std::filesystem::path> stale, leftovers;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        std::string name = entry.path().filename().string();
        if (isZoneFileName(name) && !written.count(name)) stale.push_back(entry.path());
        if (isLeftoverName(name)) leftovers.push_back(entry.path());
    }
    if (error) warnings.push_back("cannot list " + directory.string() + " for stale zone files: " + error.message());
    std::size_t removed = 0;
    for (const auto& path : stale) {
        std::error_code removeError;
        if (std::filesystem::remove(path, removeError))
            ++removed;
        else
            warnings.push_back("cannot remove stale " + path.string() + ": " + removeError.message());
    }
    for (const auto& path : leftovers) std::filesystem::remove(path, error);
    return removed;
}

} // namespace bvgeo
