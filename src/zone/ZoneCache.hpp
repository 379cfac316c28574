// ZoneCache: the zone files of up to ExtendedOptions::zoneCache zones, kept in
// "BVGZoneCache/" beside the database, one file per zone (a ZoneCacheRecord,
// replaced atomically), and their fences in memory once read; the least recently
// used zone goes first when room is needed, never the zone the device is in. The
// database's tables and the persisted settings know nothing of it: the fence
// provider copies a cached zone into them when it becomes the current one.
//
// Any thread. The index and the fences in memory are behind a lock held for a
// lookup or an update; files are read, parsed and written outside it. Stores come
// from the HTTP transport thread (downloads and prefetches) and from a host's
// preload; a file damaged on disk is removed with a ZONE log line and reads as not
// cached. Callers must not keep the reference across resetAllSharedInstances().
#pragma once

#include "fence/FenceIndex.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

class ZoneCache {
public:
    // What the cache knows of a zone without reading its file.
    struct Stamp {
        std::string lastModified;
        std::int64_t storedAt = 0;
        bool preloaded = false;
    };
    struct Copy {
        std::string zone;
        Stamp stamp;
        std::shared_ptr<const FenceIndex> fences;
    };
    struct PreloadResult {
        std::size_t loaded = 0;  // zone files taken into the cache
        std::size_t skipped = 0; // files passed over, each with a ZONE log line
        std::string error;       // why the directory could not be used at all
    };

    static constexpr const char* kDirectoryName = "BVGZoneCache";

    static ZoneCache& sharedInstance();

    // The cached copy of `zone` with its fences (read from disk when they are not in
    // memory), marked as just used; none when the zone is not cached or its file is
    // damaged (then removed).
    std::optional<Copy> find(const std::string& zone);
    std::optional<Stamp> stamp(const std::string& zone);

    struct StoreAs {
        bool current = false;   // the zone the device is in now: room is never made by removing it
        bool noFences = false;  // the server answered 403: a zone without fences, no body
        bool preloaded = false; // from the host's files: of unknown age
    };
    // Keeps a zone file as the server sent it, with the fences the download read
    // from it (null: read again from the file when needed). False when it was not
    // kept: the cache is off, a copy asked for later is held, the cache holds only
    // zones it may not remove, or the write failed (logged).
    bool store(const std::string& zone, const std::string& body, const std::string& lastModified,
               std::int64_t storedAt, std::shared_ptr<const FenceIndex> fences, StoreAs how);

    void setCurrentZone(const std::string& zone);

    // Fills the cache from a directory written by `bvgeo zones build --out DIR`:
    // DIR itself, or its "<appId>/zones" folder, holding zone files of the grid of
    // `zoneInterval`. Zones already cached keep their copy; the cache's capacity is
    // never exceeded. Preloaded copies carry the file's time as Last-Modified and
    // count as of unknown age: the server is asked about them when it can be.
    PreloadResult preload(const std::string& directory, const std::string& appId, double zoneInterval);

    std::size_t size();
    // Zone names, most recently used first.
    std::vector<std::string> zones();
    std::string directory() const;

    ZoneCache(const ZoneCache&) = delete;
    ZoneCache& operator=(const ZoneCache&) = delete;

private:
    ZoneCache() = default;

    struct Entry {
        Stamp stamp;
        std::uint64_t used = 0;
        std::shared_ptr<const FenceIndex> fences; // null until read
    };

    void ensureLoaded();
    void loadIndex();
    std::string pathOf(const std::string& zone) const;
    void drop(const std::string& zone, const std::string& why);
    std::size_t capacity() const;

    std::once_flag loaded_;
    std::mutex mutex_; // guards the members below
    std::map<std::string, Entry> entries_;
    std::uint64_t uses_ = 0;
    std::string current_;
};

} // namespace bvgeo
