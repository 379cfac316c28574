// ForwardingFileSystem: a FileSystem that hands every operation to another one. A
// test derives from it and overrides the one operation it wants to fail (a full disk
// for writeFileAtomically, a refused moveItem), keeping the rest real. Thread-safe
// as far as the wrapped file system is.
#pragma once

#include <bvgeo/platform/Export.hpp>
#include <bvgeo/platform/FileSystem.hpp>

#include <memory>

namespace bvgeo::testing {

class BVGEO_API ForwardingFileSystem : public FileSystem {
public:
    explicit ForwardingFileSystem(std::shared_ptr<FileSystem> wrapped) : wrapped_(std::move(wrapped)) {}

    std::string documentsDirectory() const override { return wrapped_->documentsDirectory(); }
    bool fileExists(const std::string& path) const override { return wrapped_->fileExists(path); }
    FileResult moveItem(const std::string& from, const std::string& to) override {
        return wrapped_->moveItem(from, to);
    }
    FileResult removeItem(const std::string& path) override { return wrapped_->removeItem(path); }
    FileResult createDirectories(const std::string& path) override { return wrapped_->createDirectories(path); }
    FileResult writeFileAtomically(const std::string& path, const std::string& contents) override {
        return wrapped_->writeFileAtomically(path, contents);
    }
    FileResult readFile(const std::string& path, std::string& contents) const override {
        return wrapped_->readFile(path, contents);
    }

    const std::shared_ptr<FileSystem>& wrapped() const { return wrapped_; }

private:
    std::shared_ptr<FileSystem> wrapped_;
};

} // namespace bvgeo::testing
