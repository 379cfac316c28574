// The settings file as the Linux platform reads it at start-up, then used as the
// zone download uses it: each key read as text and as a number, one written back
// and the file replaced. Any bytes give a usable store (empty when the file is
// damaged, which is moved aside). The files live in memory.
#include "FuzzSupport.hpp"

#include "platform/linux/FileSettingsStore.hpp"

#include <cstdint>
#include <map>
#include <mutex>

namespace {

using bvgeo::FileResult;

class MemoryFiles final : public bvgeo::FileSystem {
public:
    std::string documentsDirectory() const override { return "/fuzz"; }
    bool fileExists(const std::string& path) const override {
        std::lock_guard lock(mutex_);
        return files_.count(path) > 0;
    }
    FileResult moveItem(const std::string& from, const std::string& to) override {
        std::lock_guard lock(mutex_);
        auto found = files_.find(from);
        if (found == files_.end() || files_.count(to)) return FileResult::failure("cannot move " + from);
        files_[to] = std::move(found->second);
        files_.erase(from);
        return FileResult::success();
    }
    FileResult removeItem(const std::string& path) override {
        std::lock_guard lock(mutex_);
        files_.erase(path);
        return FileResult::success();
    }
    FileResult createDirectories(const std::string&) override { return FileResult::success(); }
    FileResult writeFileAtomically(const std::string& path, const std::string& contents) override {
        std::lock_guard lock(mutex_);
        files_[path] = contents;
        return FileResult::success();
    }
    FileResult readFile(const std::string& path, std::string& contents) const override {
        std::lock_guard lock(mutex_);
        auto found = files_.find(path);
        if (found == files_.end()) return FileResult::failure("cannot read " + path);
        contents = found->second;
        return FileResult::success();
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> files_;
};

constexpr const char* kKeys[] = {"bv1GeoLastCacheTime", "bv1GeoLastZoneFile", "bv1GeoZoneLastModified",
                                 "bv1GeoDeviceId"};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto files = std::make_shared<MemoryFiles>();
    const std::string path = "/fuzz/bvgeo-settings.json";
    files->writeFileAtomically(path, std::string(reinterpret_cast<const char*>(data), size));
    bvgeo::FileSettingsStore store(path, files, std::make_shared<bvgeo::fuzz::QuietConsole>());
    for (const char* key : kKeys) {
        (void)store.string(key);
        (void)store.integer(key);
    }
    store.setInteger(kKeys[0], 1'500'000'000);
    store.setString(kKeys[2], "Sat, 10 May 2014 07:20:55 GMT");
    if (!store.synchronize()) __builtin_trap();

    // What was written reads back the same.
    bvgeo::FileSettingsStore again(path, files, std::make_shared<bvgeo::fuzz::QuietConsole>());
    if (again.integer(kKeys[0]) != 1'500'000'000 || again.string(kKeys[2]) != "Sat, 10 May 2014 07:20:55 GMT")
        __builtin_trap();
    return 0;
}
