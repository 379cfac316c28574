#include "fence/FenceManager.hpp"

#include "datastore/BV1Database.hpp"
#include "fence/FenceRules.hpp"
#include "logger/Logger.hpp"
#include "models/FenceFetch.hpp"
#include "network/BVReachability.hpp"
#include "settings/TrackerSettings.hpp"
#include "platform/SharedInstance.hpp"
#include "datastore/DatabaseConnection.hpp"
#include "zone/ZoneCacheRules.hpp"
#include "zone/ZoneGrid.hpp"
#include "zone/ZoneManager.hpp"
#include "zone/ZonePrefetcher.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>

namespace bvgeo {

namespace {
constexpr std::string_view kGetFenceList = "getFenceList(_:lng:success:)";
} // namespace

FenceManager& FenceManager::sharedInstance() {
    static SharedInstance<FenceManager> slot;
    return slot.get([] { return std::unique_ptr<FenceManager>(new FenceManager()); });
}

std::string FenceManager::getZoneFileName(double latitude, double lng) const {
    return getZoneName(latitude, lng, TrackerSettings::sharedInstance().config().zoneInterval);
}

void FenceManager::getFenceList(double latitude, double lng, Success success) {
    const auto extended = TrackerSettings::sharedInstance().extendedOptions();
    const bool withZoneCache = extended.zoneCache > 0;
    answerFenceList(latitude, lng, std::move(success), withZoneCache);
    if (withZoneCache && extended.prefetchDistance > 0)
        ZonePrefetcher::sharedInstance().consider(latitude, lng, platform().clock->now());
}

void FenceManager::answerFenceList(double latitude, double lng, Success success, bool withZoneCache) {
    Logger::log("Getting fences list", LogCategory::FENCE, kGetFenceList, 40);
    forgetCacheOfReplacedDatabase();
    std::uint64_t seen = 0;
    {
        std::lock_guard lock(mutex_);
        seen = downloadsCompleted_;
    }
    std::string name = getZoneFileName(latitude, lng);
    std::int64_t now = platform().clock->now();

    if (name != FenceFetch::lastZoneFile()) {
        Logger::log("Zone changed, requesting new zone file...", LogCategory::ZONE, kGetFenceList, 47);
        if (withZoneCache)
            zoneChangedWithCache(name, now, seen, std::move(success));
        else
            download(name, "new", now, seen, std::move(success));
        return;
    }
    Logger::log("Zone not changed", LogCategory::ZONE, kGetFenceList, 59);
    auto cacheExpiration = TrackerSettings::sharedInstance().config().cacheExpiration;
    if (isCacheExpired(now, FenceFetch::lastCacheTime(), cacheExpiration)) {
        Logger::log("Cache expired, requesting new zone file...", LogCategory::ZONE, kGetFenceList, 64);
        if (withZoneCache)
            downloadWithCache(name, "same", now, seen, std::move(success), ZoneCache::sharedInstance().find(name));
        else
            download(name, "same", now, seen, std::move(success));
        return;
    }
    std::shared_ptr<const FenceIndex> list;
    std::shared_ptr<const std::string> entries;
    {
        std::lock_guard lock(mutex_);
        list = mFenceList;
        entries = mFenceListEntries;
    }
    if (list) {
        logRetrievedFences("Memory", *entries);
    } else {
        Logger::log("Cache not expired, retrieving from cache...", LogCategory::ZONE, kGetFenceList, 81);
        list = std::make_shared<const FenceIndex>(getFencesFromDatabase());
        logRetrievedFences("Cache", *remember(list, name));
    }
    success(std::move(list));
}

void FenceManager::forgetCacheOfReplacedDatabase() {
    // A damaged database was replaced by an empty one: the persisted cache keys
    // describe a fence table that is gone, so the next request downloads again.
    const auto replacements = BV1Database().replacements();
    {
        std::lock_guard lock(mutex_);
        if (replacements == databaseReplacementsSeen_) return;
        databaseReplacementsSeen_ = replacements;
    }
    FenceFetch::setLastZoneFile("");
    FenceFetch::setZoneLastModified("");
    FenceFetch::setLastCacheTime(0);
}

std::shared_ptr<const std::string> FenceManager::remember(std::shared_ptr<const FenceIndex> list,
                                                          const std::string& zone) {
    auto entries = std::make_shared<const std::string>(
        listingEntries(list->fences(), TrackerSettings::sharedInstance().extendedOptions().fenceListingLimit));
    std::lock_guard lock(mutex_);
    mFenceList = std::move(list);
    mFenceListEntries = entries;
    mFenceListZone_ = zone;
    return entries;
}

bool FenceManager::registerDownload(const std::string& name, std::uint64_t seen, Success& success) {
    std::shared_ptr<const FenceIndex> finished;
    std::shared_ptr<const std::string> entries;
    {
        std::lock_guard lock(mutex_);
        if (auto inFlight = downloadsInFlight_.find(name); inFlight != downloadsInFlight_.end()) {
            inFlight->second.push_back(std::move(success)); // the download in flight answers this request too
            return false;
        }
        // A download of this zone may have finished since the caller read the settings
        // (two trackers with the same fix): its list is the answer, not a second download.
        if (downloadsCompleted_ != seen && mFenceList && mFenceListZone_ == name) {
            finished = mFenceList;
            entries = mFenceListEntries;
        } else {
            downloadsInFlight_[name].push_back(std::move(success));
        }
    }
    if (finished) {
        logRetrievedFences("Memory", *entries);
        success(std::move(finished));
        return false;
    }
    return true;
}

void FenceManager::download(const std::string& name, const char* word, std::int64_t now, std::uint64_t seen,
                            Success success) {
    if (!registerDownload(name, seen, success)) return;
    // A new zone's file is asked for unconditionally: what is stored dates the old one.
    if (std::string_view(word) == "new") FenceFetch::setZoneLastModified("");
    std::string source = word;
    ZoneManager::getFencesForZone(
        name,
        [this, name, source, now](FenceList fences, bool resultsFromCache) {
            downloadCompleted(name, source, now, std::move(fences), resultsFromCache);
        },
        [this, name](const HTTPError&) {
            Logger::log("Zone file retrive failed. Network Type: " +
                            std::string(rawValue(BVReachability::isConnectedToNetworkOfType())),
                        LogCategory::ZONE, "getFencesFromZone(_:success:)", 112);
            abandonDownload(name);
        });
}

void FenceManager::abandonDownload(const std::string& name) {
    std::lock_guard lock(mutex_);
    if (auto waiting = downloadsInFlight_.find(name); waiting != downloadsInFlight_.end()) {
        unanswered_ += waiting->second.size();
        downloadsInFlight_.erase(waiting);
    }
}

void FenceManager::downloadCompleted(const std::string& name, const std::string& word, std::int64_t now,
                                     FenceList fences, bool resultsFromCache) {
    downloadCompleted(name, word, now, std::make_shared<const FenceIndex>(std::move(fences)), resultsFromCache);
}

void FenceManager::downloadCompleted(const std::string& name, const std::string& word, std::int64_t now,
                                     std::shared_ptr<const FenceIndex> list, bool resultsFromCache) {
    Logger::log("Zone file retrived successfully.", LogCategory::ZONE, kGetFenceList, 92);
    FenceFetch::setLastZoneFile(name);
    if (!resultsFromCache) {
        saveFences(list->fences());
        FenceFetch::setLastCacheTime(now);
    }
    auto entries = remember(list, name);
    std::vector<Success> waiting;
    {
        std::lock_guard lock(mutex_);
        waiting = std::move(downloadsInFlight_[name]);
        downloadsInFlight_.erase(name);
        ++downloadsCompleted_;
    }
    logRetrievedFences("Zone file (" + word + ") - " + (resultsFromCache ? "cached" : "not cached"), *entries);
    for (auto& success : waiting) success(list);
}

bool FenceManager::saveFences(const FenceList& fences) {
    auto& settings = TrackerSettings::sharedInstance();
    return Fence::saveFenceList(fences, settings.isDebug(), settings.extendedOptions().polygonFences);
}

FenceList FenceManager::getFencesFromDatabase() {
    return Fence::getFences(true, TrackerSettings::sharedInstance().extendedOptions().polygonFences);
}

std::shared_ptr<const FenceIndex> FenceManager::currentFenceList() const {
    std::lock_guard lock(mutex_);
    return mFenceList;
}

std::string FenceManager::listingEntries(const FenceList& fences, std::size_t limit) {
    const std::size_t named = limit == 0 ? fences.size() : std::min(limit, fences.size());
    std::string text;
    for (std::size_t i = 0; i < named; ++i) {
        if (i) text += ",";
        text += fences[i]->name + " - (" + fences[i]->id + ")";
    }
    if (named < fences.size()) text += ",(+" + std::to_string(fences.size() - named) + " more)";
    return text;
}

void FenceManager::logRetrievedFences(const std::string& source, const std::string& entries) {
    std::string line;
    line.reserve(source.size() + entries.size() + 14);
    line.append("Fences from ").append(source).append(": ").append(entries);
    Logger::log(line, LogCategory::FENCE, "logRetrievedFences(_:fenceList:)", 128);
}

std::uint64_t FenceManager::unansweredRequests() const {
    std::lock_guard lock(mutex_);
    return unanswered_;
}

// ---- With the zone cache ----

namespace {

constexpr std::string_view kZoneCacheFunction = "FenceManager";

void logZoneCache(const std::string& text, int line) {
    Logger::log("Zone cache: " + text, LogCategory::ZONE, kZoneCacheFunction, line);
}

// "zone_x.json stored 120 s ago", or what stands for an age when there is none.
std::string describeCopy(const std::string& name, const ZoneCache::Stamp& stamp, std::int64_t now) {
    if (stamp.preloaded) return "the preloaded copy of " + name;
    if (stamp.storedAt > now) return name + " stored " + std::to_string(stamp.storedAt - now) + " s after now";
    return name + " stored " + std::to_string(now - stamp.storedAt) + " s ago";
}

} // namespace

void FenceManager::zoneChangedWithCache(const std::string& name, std::int64_t now, std::uint64_t seen,
                                        Success success) {
    auto copy = ZoneCache::sharedInstance().find(name);
    if (copy) {
        const auto cacheExpiration = TrackerSettings::sharedInstance().config().cacheExpiration;
        const std::string described = describeCopy(name, copy->stamp, now);
        switch (cachedCopyAge(now, copy->stamp.storedAt, cacheExpiration, copy->stamp.preloaded)) {
        case CopyAge::Fresh:
            logZoneCache(described + " is fresh; answered without a request", __LINE__);
            adoptCachedCopy(name, *copy, now, "Zone cache", std::move(success));
            return;
        case CopyAge::Expired:
            logZoneCache(described + " has expired; downloading the zone file again", __LINE__);
            break;
        case CopyAge::FromTheFuture:
            logZoneCache(described + " (the clock went back); downloading the zone file again", __LINE__);
            break;
        case CopyAge::Preloaded:
            logZoneCache(described + " is of unknown age; downloading the zone file again", __LINE__);
            break;
        }
    }
    downloadWithCache(name, "new", now, seen, std::move(success), std::move(copy));
}

void FenceManager::downloadWithCache(const std::string& name, const char* word, std::int64_t now,
                                     std::uint64_t seen, Success success, std::optional<ZoneCache::Copy> copy) {
    if (!registerDownload(name, seen, success)) return;
    const std::string source = word;
    // A new zone is asked for unconditionally, cached copy or not, as without the
    // cache: a 304 renews no cache time, so a conditional request about an expired
    // copy would be repeated at every position until a body came back. The copy
    // still answers if the download fails.
    if (source == "new") FenceFetch::setZoneLastModified("");
    const std::string url = TrackerSettings::sharedInstance().zonesBaseUrl() + name;
    Logger::log("Requested Zone = " + url, LogCategory::ZONE, "getFencesForZone(_:success:failure:)", 37);
    ZoneManager::requestZoneFile(url, FenceFetch::zoneLastModified(), [this, name, source, now, copy](
                                                                          ZoneManager::ZoneFileAnswer& answer) {
        // What the answer leads to is one commit, as for a download without the cache.
        WriteGroup writes;
        auto& cache = ZoneCache::sharedInstance();
        if (answer.downloaded) {
            FenceFetch::setZoneLastModified(answer.lastModified);
            auto list = std::make_shared<const FenceIndex>(std::move(answer.fences));
            cache.store(name, answer.body, answer.lastModified, now, list, {.current = true});
            downloadCompleted(name, source, now, std::move(list), false);
            return;
        }
        Logger::log("Request Failed: Status (" + std::to_string(answer.status) + "). Network Type: " +
                        std::string(rawValue(BVReachability::isConnectedToNetworkOfType())),
                    LogCategory::ZONE, "getFencesForZone(_:success:failure:)", 62);
        if (answer.status == 304) {
            downloadCompleted(name, source, now, ZoneManager::getListFromCache(), true);
            return;
        }
        if (answer.status == 403) {
            auto none = std::make_shared<const FenceIndex>(FenceList{});
            cache.store(name, "", "", now, none, {.current = true, .noFences = true});
            downloadCompleted(name, source, now, std::move(none), false);
            return;
        }
        Logger::log("Zone file retrive failed. Network Type: " +
                        std::string(rawValue(BVReachability::isConnectedToNetworkOfType())),
                    LogCategory::ZONE, "getFencesFromZone(_:success:)", 112);
        if (copy && answersWithStaleCopy(answer.status)) {
            logZoneCache("the download failed (status " + std::to_string(answer.status) + "); answered with " +
                             describeCopy(name, copy->stamp, now),
                         __LINE__);
            adoptCachedCopy(name, *copy, now, "Zone cache (stale)", nullptr);
            return;
        }
        abandonDownload(name);
    });
}

void FenceManager::adoptCachedCopy(const std::string& name, const ZoneCache::Copy& copy, std::int64_t now,
                                   const std::string& source, Success direct) {
    FenceFetch::setLastZoneFile(name);
    FenceFetch::setZoneLastModified(copy.stamp.lastModified);
    FenceFetch::setLastCacheTime(adoptedCacheTime(now, copy.stamp.storedAt, copy.stamp.preloaded));
    saveFences(copy.fences->fences());
    ZoneCache::sharedInstance().setCurrentZone(name);
    auto entries = remember(copy.fences, name);
    std::vector<Success> waiting;
    {
        std::lock_guard lock(mutex_);
        if (auto inFlight = downloadsInFlight_.find(name); inFlight != downloadsInFlight_.end()) {
            waiting = std::move(inFlight->second);
            downloadsInFlight_.erase(inFlight);
        }
        ++downloadsCompleted_;
    }
    if (direct) waiting.push_back(std::move(direct));
    logRetrievedFences(source, *entries);
    for (auto& success : waiting) success(copy.fences);
}

} // namespace bvgeo
