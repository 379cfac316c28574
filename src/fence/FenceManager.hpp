// FenceManager: which fences apply at a position. Keeps the current fence list (with
// its spatial index) in memory and decides per request whether to answer from
// memory, from the fence table, or by downloading the zone file.
//
// getFenceList runs on the caller's thread (the location delivery thread); a
// download completes on the HTTP transport thread. The memory list and the map of
// downloads in flight are guarded by a short lock. While a zone's download is in
// flight, further requests for that zone wait for its outcome instead of starting
// another (and get nothing, like it, when it fails).
//
// With a zone cache (ExtendedOptions::zoneCache > 0) a zone change first looks in
// the cache: a fresh copy answers at once, any other copy makes the request
// conditional and answers when the server says 304 or when the download fails.
// A copy that answers becomes the current zone's list exactly as a download does:
// the fence table and the persisted settings then describe it. With a prefetch
// distance, each position then lets the prefetcher look at its neighbours.
#pragma once

#include "fence/FenceIndex.hpp"
#include "zone/ZoneCache.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace bvgeo {

class FenceManager {
public:
    using Success = std::function<void(std::shared_ptr<const FenceIndex> fenceList)>;

    static FenceManager& sharedInstance();

    // Calls `success` once with the zone's fences, or never when the download fails.
    void getFenceList(double latitude, double lng, Success success);

    std::string getZoneFileName(double latitude, double lng) const;
    bool saveFences(const FenceList& fences);
    FenceList getFencesFromDatabase();

    // The list last obtained; null before the first.
    std::shared_ptr<const FenceIndex> currentFenceList() const;

    // Requests that ended without a fence list: the download failed and, with the
    // zone cache, no copy of the zone was there to answer.
    std::uint64_t unansweredRequests() const;

    FenceManager(const FenceManager&) = delete;
    FenceManager& operator=(const FenceManager&) = delete;

private:
    FenceManager() = default;

    void answerFenceList(double latitude, double lng, Success success, bool withZoneCache);
    // `seen`: downloadsCompleted_ when the caller read the settings it decided on.
    // False when `success` was answered already or joined a download in flight;
    // true when the caller must start the download.
    bool registerDownload(const std::string& name, std::uint64_t seen, Success& success);
    void download(const std::string& name, const char* word, std::int64_t now, std::uint64_t seen, Success success);
    void downloadCompleted(const std::string& name, const std::string& word, std::int64_t now, FenceList fences,
                           bool resultsFromCache);
    void downloadCompleted(const std::string& name, const std::string& word, std::int64_t now,
                           std::shared_ptr<const FenceIndex> list, bool resultsFromCache);
    // The requests waiting for `name` get nothing.
    void abandonDownload(const std::string& name);

    // The zone cache's side of a zone change, and of a download.
    void zoneChangedWithCache(const std::string& name, std::int64_t now, std::uint64_t seen, Success success);
    void downloadWithCache(const std::string& name, const char* word, std::int64_t now, std::uint64_t seen,
                           Success success, std::optional<ZoneCache::Copy> copy);
    // Makes a cached copy the current zone's list (table, settings, memory) and
    // answers whoever waits for the zone, and `direct` when given.
    void adoptCachedCopy(const std::string& name, const ZoneCache::Copy& copy, std::int64_t now,
                         const std::string& source, Success direct);
    void logRetrievedFences(const std::string& source, const std::string& entries);
    // Replaces the memory list and its listing text; returns the text.
    std::shared_ptr<const std::string> remember(std::shared_ptr<const FenceIndex> list, const std::string& zone);
    // "name - (id)" joined by ","; past `limit` fences (0: none) it ends ",(+M more)".
    static std::string listingEntries(const FenceList& fences, std::size_t limit);
    void forgetCacheOfReplacedDatabase();

    mutable std::mutex mutex_;
    std::shared_ptr<const FenceIndex> mFenceList;
    // The listing of mFenceList, made once per list: a zone may hold many fences.
    std::shared_ptr<const std::string> mFenceListEntries;
    std::string mFenceListZone_; // the zone file mFenceList came from
    std::map<std::string, std::vector<Success>> downloadsInFlight_;
    std::uint64_t downloadsCompleted_ = 0;
    std::uint64_t databaseReplacementsSeen_ = 0;
    std::uint64_t unanswered_ = 0;
};

} // namespace bvgeo
