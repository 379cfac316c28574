// The real file system with faults on demand: atomic writes counted and, while
// refuseWrites, failing as on a full disk; moves failing while refuseMoves.
#pragma once

#include <bvgeo/testing/ForwardingPlatform.hpp>

#include <atomic>
#include <string>

namespace bvgeo::testing {

class FaultyFiles final : public ForwardingFileSystem {
public:
    using ForwardingFileSystem::ForwardingFileSystem;
    FileResult writeFileAtomically(const std::string& path, const std::string& contents) override {
        ++writes;
        if (refuseWrites) return FileResult::failure("Cannot write \"" + path + "\": No space left on device");
        return ForwardingFileSystem::writeFileAtomically(path, contents);
    }
    FileResult moveItem(const std::string& from, const std::string& to) override {
        if (refuseMoves) return FileResult::failure("Cannot move \"" + from + "\" to \"" + to + "\": No space left");
        return ForwardingFileSystem::moveItem(from, to);
    }
    std::atomic<int> writes{0};
    std::atomic<bool> refuseWrites{false};
    std::atomic<bool> refuseMoves{false};
};

} // namespace bvgeo::testing
