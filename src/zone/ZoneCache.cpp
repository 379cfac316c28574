#include "zone/ZoneCache.hpp"

#include "logger/Logger.hpp"
#include "platform/SharedInstance.hpp"
#include "settings/TrackerSettings.hpp"
#include "zone/ZoneCacheRecord.hpp"
#include "zone/ZoneCacheRules.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace bvgeo {

namespace fs = std::filesystem;

namespace {

// A cached zone file keeps its whole body; whether its geometries become polygon
// fences is decided each time it is read, as for a download.
bool polygonFences() { return TrackerSettings::sharedInstance().extendedOptions().polygonFences; }

constexpr std::string_view kFunction = "ZoneCache";
constexpr std::string_view kSuffix = ".cache";
// A header is a few hundred bytes; a first line longer than this is no header.
constexpr std::size_t kMaxHeaderBytes = 4096;

void log(const std::string& text, int line) { Logger::log("Zone cache: " + text, LogCategory::ZONE, kFunction, line); }

std::optional<std::int64_t> modificationTime(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return static_cast<std::int64_t>(status.st_mtime);
}

// The first line of a file, or nothing when it has none within the limit.
std::optional<std::string> firstLine(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::string line;
    char c;
    while (line.size() <= kMaxHeaderBytes && in.get(c)) {
        if (c == '\n') return line;
        line.push_back(c);
    }
    return std::nullopt;
}

std::string plural(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

} // namespace

ZoneCache& ZoneCache::sharedInstance() {
    static SharedInstance<ZoneCache> slot;
    return slot.get([] { return std::unique_ptr<ZoneCache>(new ZoneCache()); });
}

std::string ZoneCache::directory() const {
    return appendPathComponent(platform().files->documentsDirectory(), kDirectoryName);
}

std::string ZoneCache::pathOf(const std::string& zone) const {
    return appendPathComponent(directory(), zone + std::string(kSuffix));
}

std::size_t ZoneCache::capacity() const { return TrackerSettings::sharedInstance().extendedOptions().zoneCache; }

void ZoneCache::ensureLoaded() {
    std::call_once(loaded_, [this] { loadIndex(); });
}

// Reads the header of every cached file, so that lookups need no disk; the files'
// modification times (set at every use) give the order of use across launches.
void ZoneCache::loadIndex() {
    std::error_code error;
    fs::directory_iterator listing(directory(), error);
    if (error) return;
    struct Found {
        std::string zone;
        Stamp stamp;
        fs::file_time_type used;
    };
    std::vector<Found> found;
    std::vector<std::pair<std::string, std::string>> damaged; // path, why
    for (const auto& item : listing) {
        const std::string name = item.path().filename().string();
        if (name.find(".tmp-") != std::string::npos) {
            // Left by a write that never got to its rename.
            platform().files->removeItem(item.path().string());
            continue;
        }
        if (!name.ends_with(kSuffix) || !item.is_regular_file(error)) continue;
        const std::string zone = name.substr(0, name.size() - kSuffix.size());
        std::string problem = "it has no first line";
        std::optional<ZoneCacheRecord> header;
        if (auto line = firstLine(item.path().string())) header = decodeZoneCacheHeader(*line, problem);
        if (header && header->zone != zone) {
            problem = "it holds " + header->zone;
            header.reset();
        }
        if (!header) {
            damaged.emplace_back(item.path().string(), zone + " is damaged (" + problem + ")");
            continue;
        }
        found.push_back({zone, {header->lastModified, header->storedAt, header->preloaded},
                         fs::last_write_time(item.path(), error)});
    }
    for (const auto& [path, why] : damaged) {
        platform().files->removeItem(path);
        log(why + "; removed", __LINE__);
    }
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) { return a.used < b.used; });
    // A smaller capacity than the last run's: the least recently used go.
    const std::size_t keep = capacity();
    const std::size_t surplus = found.size() > keep ? found.size() - keep : 0;
    for (std::size_t i = 0; i < surplus; ++i) {
        platform().files->removeItem(pathOf(found[i].zone));
        log(found[i].zone + " removed: the cache keeps " + plural(keep, "zone", "zones"), __LINE__);
    }
    std::lock_guard lock(mutex_);
    for (std::size_t i = surplus; i < found.size(); ++i)
        entries_[found[i].zone] = Entry{found[i].stamp, ++uses_, nullptr};
}

void ZoneCache::drop(const std::string& zone, const std::string& why) {
    {
        std::lock_guard lock(mutex_);
        entries_.erase(zone);
    }
    platform().files->removeItem(pathOf(zone));
    log(zone + " is damaged (" + why + "); removed", __LINE__);
}

std::optional<ZoneCache::Copy> ZoneCache::find(const std::string& zone) {
    ensureLoaded();
    {
        std::lock_guard lock(mutex_);
        auto held = entries_.find(zone);
        if (held == entries_.end()) return std::nullopt;
        held->second.used = ++uses_;
        if (held->second.fences) return Copy{zone, held->second.stamp, held->second.fences};
    }
    const std::string path = pathOf(zone);
    std::string text;
    if (auto read = platform().files->readFile(path, text); !read) {
        drop(zone, read.error);
        return std::nullopt;
    }
    std::string problem;
    auto record = decodeZoneCacheRecord(text, problem);
    if (record && record->zone != zone) {
        problem = "it holds " + record->zone;
        record.reset();
    }
    std::optional<FenceList> fences;
    if (record) fences = record->noFences ? FenceList{} : fencesOfZoneFileBody(record->body, problem, polygonFences());
    if (!fences) {
        drop(zone, problem);
        return std::nullopt;
    }
    Copy copy{zone, {record->lastModified, record->storedAt, record->preloaded},
              std::make_shared<const FenceIndex>(std::move(*fences))};
    {
        std::lock_guard lock(mutex_);
        // Removed meanwhile to make room: the copy still answers this once.
        if (auto held = entries_.find(zone); held != entries_.end()) {
            held->second.stamp = copy.stamp;
            held->second.fences = copy.fences;
        }
    }
    std::error_code ignored;
    fs::last_write_time(path, fs::file_time_type::clock::now(), ignored);
    return copy;
}

std::optional<ZoneCache::Stamp> ZoneCache::stamp(const std::string& zone) {
    ensureLoaded();
    std::lock_guard lock(mutex_);
    auto held = entries_.find(zone);
    if (held == entries_.end()) return std::nullopt;
    return held->second.stamp;
}

bool ZoneCache::store(const std::string& zone, const std::string& body, const std::string& lastModified,
                      std::int64_t storedAt, std::shared_ptr<const FenceIndex> fences, StoreAs how) {
    ensureLoaded();
    const std::size_t keep = capacity();
    if (keep == 0) return false;
    const std::int64_t now = platform().clock->now();
    {
        std::lock_guard lock(mutex_);
        if (how.current) current_ = zone;
        auto held = entries_.find(zone);
        if (held != entries_.end() &&
            !replacesCopy(now, held->second.stamp.storedAt, held->second.stamp.preloaded, storedAt))
            return false;
        if (held == entries_.end() && entries_.size() >= keep) {
            // Room comes from a zone other than the device's own.
            const bool roomPossible = std::any_of(entries_.begin(), entries_.end(),
                                                  [&](const auto& entry) { return entry.first != current_; });
            if (!roomPossible) return false;
        }
    }
    auto& files = *platform().files;
    files.createDirectories(directory());
    ZoneCacheRecord record{zone, lastModified, storedAt, how.preloaded, how.noFences, how.noFences ? std::string() : body};
    if (auto written = files.writeFileAtomically(pathOf(zone), encodeZoneCacheRecord(record)); !written) {
        log(zone + " not stored: " + written.error, __LINE__);
        return false;
    }
    std::vector<std::string> removed;
    {
        std::lock_guard lock(mutex_);
        entries_[zone] = Entry{{lastModified, storedAt, how.preloaded}, ++uses_, std::move(fences)};
        while (entries_.size() > keep) {
            auto victim = entries_.end();
            for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
                if (entry->first == zone || entry->first == current_) continue;
                if (victim == entries_.end() || entry->second.used < victim->second.used) victim = entry;
            }
            if (victim == entries_.end()) break;
            removed.push_back(victim->first);
            entries_.erase(victim);
        }
    }
    for (const auto& gone : removed) {
        files.removeItem(pathOf(gone));
        log(gone + " removed to make room: the cache keeps " + plural(keep, "zone", "zones"), __LINE__);
    }
    return true;
}

void ZoneCache::setCurrentZone(const std::string& zone) {
    std::lock_guard lock(mutex_);
    current_ = zone;
}

std::size_t ZoneCache::size() {
    ensureLoaded();
    std::lock_guard lock(mutex_);
    return entries_.size();
}

std::vector<std::string> ZoneCache::zones() {
    ensureLoaded();
    std::vector<std::pair<std::uint64_t, std::string>> byUse;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [zone, entry] : entries_) byUse.emplace_back(entry.used, zone);
    }
    std::sort(byUse.rbegin(), byUse.rend());
    std::vector<std::string> names;
    for (auto& [used, zone] : byUse) names.push_back(std::move(zone));
    return names;
}

ZoneCache::PreloadResult ZoneCache::preload(const std::string& directory, const std::string& appId,
                                            double zoneInterval) {
    PreloadResult result;
    const std::size_t keep = capacity();
    if (keep == 0) {
        result.error = "the zone cache is off (zoneCache is 0)";
        return result;
    }
    std::error_code error;
    fs::path root = fs::path(directory).lexically_normal();
    if (root.has_filename() == false && root.has_parent_path()) root = root.parent_path();
    if (!fs::is_directory(root, error)) {
        result.error = directory + " is not a directory";
        return result;
    }
    // The layout `bvgeo zones build --out DIR` writes: DIR/<appId>/zones/.
    fs::path zones = root / appId / "zones";
    if (!fs::is_directory(zones, error)) {
        if (root.filename() == "zones") {
            const std::string owner = root.parent_path().filename().string();
            if (owner != appId) {
                result.error = directory + " holds the zone files of app id '" + owner + "', not '" + appId + "'";
                return result;
            }
            zones = root;
        } else {
            std::string others;
            for (const auto& item : fs::directory_iterator(root, error))
                if (fs::is_directory(item.path() / "zones", error))
                    others += (others.empty() ? "" : ", ") + item.path().filename().string();
            result.error = directory + " has no zone files of app id '" + appId + "'" +
                           (others.empty() ? "" : " (it has those of " + others + ")");
            return result;
        }
    }
    std::vector<fs::path> files;
    for (const auto& item : fs::directory_iterator(zones, error))
        if (item.is_regular_file(error)) files.push_back(item.path());
    std::sort(files.begin(), files.end());

    char interval[32];
    std::snprintf(interval, sizeof interval, "%g", zoneInterval);
    ensureLoaded();
    for (const auto& path : files) {
        const std::string name = path.filename().string();
        std::string why;
        std::string body;
        std::optional<FenceList> fences;
        if (!looksLikeZoneFileName(name)) {
            why = "not a zone file name";
        } else if (!isZoneFileNameOfGrid(name, zoneInterval)) {
            why = std::string("not a cell of the ") + interval + " degree grid";
        } else if (stamp(name)) {
            why = "already cached";
        } else if (size() >= keep) {
            why = "the cache is full (" + plural(keep, "zone", "zones") + ")";
        } else if (auto read = platform().files->readFile(path.string(), body); !read) {
            why = read.error;
        } else if (fences = fencesOfZoneFileBody(body, why, polygonFences()); !fences) {
            why = "not a zone file: " + why;
        } else {
            const auto time = modificationTime(path.string()).value_or(0);
            // The fences are read again when the zone is needed: a preload of many
            // zones keeps none of them in memory meanwhile.
            if (store(name, body, httpDate(time), 0, nullptr, {.preloaded = true})) {
                ++result.loaded;
                continue;
            }
            why = "not stored";
        }
        ++result.skipped;
        log("preload skipped " + path.string() + ": " + why, __LINE__);
    }
    log("preloaded " + plural(result.loaded, "zone file", "zone files") + " from " + zones.string() + " (" +
            std::to_string(result.skipped) + " skipped)",
        __LINE__);
    return result;
}

} // namespace bvgeo
