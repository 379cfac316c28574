// PosixFileSystem: the documents directory given at construction and file operations
// on it through POSIX calls. Holds no mutable state, so any thread may use it;
// operations on the same path from several threads are ordered by the kernel only.
#pragma once

#include <bvgeo/platform/FileSystem.hpp>

#include <string>

namespace bvgeo {

class PosixFileSystem final : public FileSystem {
public:
    explicit PosixFileSystem(std::string documentsDirectory);

    std::string documentsDirectory() const override { return documents_; }
    bool fileExists(const std::string& path) const override;
    FileResult moveItem(const std::string& from, const std::string& to) override;
    FileResult removeItem(const std::string& path) override;
    FileResult createDirectories(const std::string& path) override;
    // The new file is readable by the owner only.
    FileResult writeFileAtomically(const std::string& path, const std::string& contents) override;
    FileResult readFile(const std::string& path, std::string& contents) const override;

private:
    std::string documents_;
};

} // namespace bvgeo
