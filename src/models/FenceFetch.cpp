#include "models/FenceFetch.hpp"

#include <bvgeo/platform/Platform.hpp>

namespace bvgeo {

namespace {

std::string readString(std::string_view key) { return platform().settings->string(key).value_or(""); }

void writeString(std::string_view key, const std::string& value) {
    auto& settings = *platform().settings;
    settings.setString(key, value);
    settings.synchronize();
}

} // namespace

std::int64_t FenceFetch::lastCacheTime() { return platform().settings->integer(kLastCacheTimeKey).value_or(0); }

void FenceFetch::setLastCacheTime(std::int64_t seconds) {
    auto& settings = *platform().settings;
    settings.setInteger(kLastCacheTimeKey, seconds);
    settings.synchronize();
}

std::string FenceFetch::lastZoneFile() { return readString(kLastZoneFileKey); }
void FenceFetch::setLastZoneFile(const std::string& name) { writeString(kLastZoneFileKey, name); }
std::string FenceFetch::zoneLastModified() { return readString(kZoneLastModifiedKey); }
void FenceFetch::setZoneLastModified(const std::string& text) { writeString(kZoneLastModifiedKey, text); }
std::string FenceFetch::deviceId() { return readString(kDeviceIdKey); }
void FenceFetch::setDeviceId(const std::string& id) { writeString(kDeviceIdKey, id); }

void FenceFetch::reset() {
    auto& settings = *platform().settings;
    settings.remove(kLastCacheTimeKey);
    settings.remove(kLastZoneFileKey);
    settings.remove(kZoneLastModifiedKey);
    settings.remove(kDeviceIdKey);
    settings.synchronize();
}

} // namespace bvgeo
