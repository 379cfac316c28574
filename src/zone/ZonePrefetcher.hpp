// ZonePrefetcher: fetches, in the background, the zone files of the neighbouring
// cells a position close to its cell's edge or corner could enter next, into the
// zone cache only: never into the current list, the fence table or the persisted
// settings. One request at a time, conditional on the cached copy; a neighbour
// whose copy is fresh is left alone, and each neighbour is asked at most once per
// cacheExpiration whatever the answer (so a server that keeps failing costs one
// request per neighbour per period). A download of the device's own zone may be
// under way beside it: that one is asked for first. Nothing is asked while the platform reports
// no network or a low battery. What it fetches and why goes to the log under ZONE.
//
// consider() runs on the location thread after the position's fence list was
// asked for; answers complete on the HTTP transport thread. State is behind a
// short lock. Callers must not keep the reference across resetAllSharedInstances().
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace bvgeo {

class ZonePrefetcher {
public:
    static ZonePrefetcher& sharedInstance();

    // The position of one update, taken at `now`.
    void consider(double latitude, double longitude, std::int64_t now);

    // Prefetch requests started so far.
    std::uint64_t requestsStarted() const;

    ZonePrefetcher(const ZonePrefetcher&) = delete;
    ZonePrefetcher& operator=(const ZonePrefetcher&) = delete;

private:
    ZonePrefetcher() = default;

    void skip(const std::string& reason);
    void finished(const std::string& zone, long status, bool downloaded, std::size_t fences, bool stored);

    // Attempts that no longer hold anything back are forgotten; beyond this many
    // (a clock gone wild) the oldest go too.
    static constexpr std::size_t kMaxAttempts = 64;

    mutable std::mutex mutex_; // guards the members below
    bool inFlight_ = false;
    std::map<std::string, std::int64_t> attempts_; // zone -> when it was last asked for
    std::string lastSkip_;                         // the last reason logged for not asking
    std::uint64_t started_ = 0;
};

} // namespace bvgeo
