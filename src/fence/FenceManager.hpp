// FenceManager: which fences apply at a position. Keeps the current fence list (with
// its spatial index) in memory and decides per request whether to answer from
// memory, from the fence table, or by downloading the zone file.
//
// getFenceList runs on the caller's thread (the location delivery thread); a
// download completes on the HTTP transport thread. The memory list and the map of
// downloads in flight are guarded by a short lock. While a zone's download is in
// flight, further requests for that zone wait for its outcome instead of starting
// another (and get nothing, like it, when it fails).
#pragma once

#include "fence/FenceIndex.hpp"

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

    FenceManager(const FenceManager&) = delete;
    FenceManager& operator=(const FenceManager&) = delete;

private:
    FenceManager() = default;

    // `seen`: downloadsCompleted_ when the caller read the settings it decided on.
    void download(const std::string& name, const char* word, std::int64_t now, std::uint64_t seen, Success success);
    void downloadCompleted(const std::string& name, const std::string& word, std::int64_t now, FenceList fences,
                           bool resultsFromCache);
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
};

} // namespace bvgeo
