// FenceFetch: the four values kept in the settings store between launches: when the
// last zone file was stored, which one it was, its Last-Modified text, and the
// device identifier. Every write that changes a value is flushed to the store at
// once; writing the value a key already holds costs nothing (after a flush that
// failed, the next write flushes again). Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace bvgeo {

class FenceFetch {
public:
    static constexpr std::string_view kLastCacheTimeKey = "bv1GeoLastCacheTime";
    static constexpr std::string_view kLastZoneFileKey = "bv1GeoLastZoneFile";
    static constexpr std::string_view kZoneLastModifiedKey = "bv1GeoZoneLastModified";
    static constexpr std::string_view kDeviceIdKey = "bv1GeoDeviceId";

    // Missing keys (or values of the wrong type) read as 0 and empty text.
    static std::int64_t lastCacheTime();
    static void setLastCacheTime(std::int64_t seconds);
    static std::string lastZoneFile();
    static void setLastZoneFile(const std::string& name);
    static std::string zoneLastModified();
    static void setZoneLastModified(const std::string& text);
    static std::string deviceId();
    static void setDeviceId(const std::string& id);

    // Removes the four keys, then flushes the store.
    static void reset();
    // Flushes the store, for a value set in it directly.
    static void synchronize();
};

} // namespace bvgeo
