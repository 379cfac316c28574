// The fence list provider's cache rule as a pure function.
#pragma once

#include <cstdint>

namespace bvgeo {

// A stored zone file is stale once strictly more than `cacheExpiration` seconds
// have passed since it was stored; a clock set back never makes it stale.
inline bool isCacheExpired(std::int64_t now, std::int64_t lastCacheTime, std::int64_t cacheExpiration) {
    return now - lastCacheTime > cacheExpiration;
}

} // namespace bvgeo
