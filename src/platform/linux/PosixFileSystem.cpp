#include "platform/linux/PosixFileSystem.hpp"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bvgeo {

namespace {

std::string errorText(int error) { return std::generic_category().message(error); }

FileResult failure(const std::string& what, const std::string& path, int error) {
    return FileResult::failure(what + " \"" + path + "\": " + errorText(error));
}

// Closes the descriptor on every path out.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    // Close reports late write errors (NFS, quota), so the atomic write checks it.
    int close() {
        int result = ::close(fd_);
        fd_ = -1;
        return result;
    }

private:
    int fd_;
};

bool writeAll(int fd, const std::string& contents) {
    const char* data = contents.data();
    std::size_t left = contents.size();
    while (left > 0) {
        ssize_t written = ::write(fd, data, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
    return true;
}

std::string parentDirectory(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

} // namespace

PosixFileSystem::PosixFileSystem(std::string documentsDirectory) : documents_(std::move(documentsDirectory)) {}

bool PosixFileSystem::fileExists(const std::string& path) const {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

FileResult PosixFileSystem::moveItem(const std::string& from, const std::string& to) {
    const std::string what = "Cannot move \"" + from + "\" to";
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return FileResult::success();
    int error = errno;
    if (error != EINVAL && error != ENOSYS) return failure(what, to, error);

    // The file system cannot rename without replacing. A hard link cannot replace
    // either, so link + unlink keeps the promise for files.
    if (::link(from.c_str(), to.c_str()) == 0) {
        if (::unlink(from.c_str()) == 0) return FileResult::success();
        error = errno;
        ::unlink(to.c_str());
        return failure(what, to, error);
    }
    error = errno;
    if (error != EPERM && error != EXDEV && error != ENOTSUP) return failure(what, to, error);
    // Directories cannot be linked: check, then rename; the gap is unavoidable here.
    if (fileExists(to)) return failure(what, to, EEXIST);
    if (::rename(from.c_str(), to.c_str()) == 0) return FileResult::success();
    return failure(what, to, errno);
}

FileResult PosixFileSystem::removeItem(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) return failure("Cannot remove", path, errno);
    std::error_code error;
    std::filesystem::remove_all(path, error);
    if (error) return FileResult::failure("Cannot remove \"" + path + "\": " + error.message());
    return FileResult::success();
}

FileResult PosixFileSystem::createDirectories(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) return FileResult::failure("Cannot create directory \"" + path + "\": " + error.message());
    if (!std::filesystem::is_directory(path, error))
        return FileResult::failure("Cannot create directory \"" + path + "\": " + errorText(ENOTDIR));
    return FileResult::success();
}

FileResult PosixFileSystem::writeFileAtomically(const std::string& path, const std::string& contents) {
    std::string temporary = path + ".tmp-XXXXXX";
    Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (file.get() < 0) return failure("Cannot create a temporary file for", path, errno);

    auto abandon = [&](int error) {
        if (file.get() >= 0) file.close();
        ::unlink(temporary.c_str());
        return failure("Cannot write", path, error);
    };
    if (!writeAll(file.get(), contents)) return abandon(errno);
    if (::fsync(file.get()) != 0) return abandon(errno);
    if (file.close() != 0) return abandon(errno);
    if (::rename(temporary.c_str(), path.c_str()) != 0) return abandon(errno);

    // The rename is durable only once the directory entry is on disk too. A failure
    // here leaves the new file in place, so it does not count as a failed write.
    Descriptor directory(::open(parentDirectory(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() >= 0) ::fsync(directory.get());
    return FileResult::success();
}

FileResult PosixFileSystem::readFile(const std::string& path, std::string& contents) const {
    Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) return failure("Cannot read", path, errno);
    std::string data;
    char buffer[65536];
    for (;;) {
        ssize_t got = ::read(file.get(), buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) continue;
            return failure("Cannot read", path, errno);
        }
        if (got == 0) break;
        data.append(buffer, static_cast<std::size_t>(got));
    }
    contents = std::move(data);
    return FileResult::success();
}

} // namespace bvgeo
