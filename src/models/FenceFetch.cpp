#include "models/FenceFetch.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <atomic>
#include <type_traits>

namespace bvgeo {

namespace {

// Set while the last write of the store did not reach it: the next write goes out
// even when its value is already in memory, so that nothing stays unwritten.
std::atomic<bool> unsynchronized{false};

// A value the store already holds is not written again. Every position in an
// unchanged zone confirms the zone file (and after an expiry every 304 does), and
// each write is a whole new settings file with its sync and rename.
template <class Value>
void store(std::string_view key, const Value& value) {
    auto& settings = *platform().settings;
    if constexpr (std::is_same_v<Value, std::string>) {
        if (!unsynchronized.load() && settings.string(key) == value) return;
        settings.setString(key, value);
    } else {
        if (!unsynchronized.load() && settings.integer(key) == value) return;
        settings.setInteger(key, value);
    }
    unsynchronized.store(!settings.synchronize());
}

std::string readString(std::string_view key) { return platform().settings->string(key).value_or(""); }

void writeString(std::string_view key, const std::string& value) { store(key, value); }

} // namespace

std::int64_t FenceFetch::lastCacheTime() { return platform().settings->integer(kLastCacheTimeKey).value_or(0); }

void FenceFetch::setLastCacheTime(std::int64_t seconds) { store(kLastCacheTimeKey, seconds); }

std::string FenceFetch::lastZoneFile() { return readString(kLastZoneFileKey); }
void FenceFetch::setLastZoneFile(const std::string& name) { writeString(kLastZoneFileKey, name); }
std::string FenceFetch::zoneLastModified() { return readString(kZoneLastModifiedKey); }
void FenceFetch::setZoneLastModified(const std::string& text) { writeString(kZoneLastModifiedKey, text); }
std::string FenceFetch::deviceId() { return readString(kDeviceIdKey); }
void FenceFetch::setDeviceId(const std::string& id) { writeString(kDeviceIdKey, id); }

void FenceFetch::synchronize() { unsynchronized.store(!platform().settings->synchronize()); }

void FenceFetch::reset() {
    auto& settings = *platform().settings;
    settings.remove(kLastCacheTimeKey);
    settings.remove(kLastZoneFileKey);
    settings.remove(kZoneLastModifiedKey);
    settings.remove(kDeviceIdKey);
    unsynchronized.store(!settings.synchronize());
}

} // namespace bvgeo
