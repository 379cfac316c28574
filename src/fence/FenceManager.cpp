#include "fence/FenceManager.hpp"

#include "datastore/BV1Database.hpp"
#include "fence/FenceRules.hpp"
#include "logger/Logger.hpp"
#include "models/FenceFetch.hpp"
#include "network/BVReachability.hpp"
#include "settings/TrackerSettings.hpp"
#include "platform/SharedInstance.hpp"
#include "zone/ZoneGrid.hpp"
#include "zone/ZoneManager.hpp"

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
        download(name, "new", now, seen, std::move(success));
        return;
    }
    Logger::log("Zone not changed", LogCategory::ZONE, kGetFenceList, 59);
    auto cacheExpiration = TrackerSettings::sharedInstance().config().cacheExpiration;
    if (isCacheExpired(now, FenceFetch::lastCacheTime(), cacheExpiration)) {
        Logger::log("Cache expired, requesting new zone file...", LogCategory::ZONE, kGetFenceList, 64);
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

void FenceManager::download(const std::string& name, const char* word, std::int64_t now, std::uint64_t seen,
                            Success success) {
    std::shared_ptr<const FenceIndex> finished;
    std::shared_ptr<const std::string> entries;
    {
        std::lock_guard lock(mutex_);
        if (auto inFlight = downloadsInFlight_.find(name); inFlight != downloadsInFlight_.end()) {
            inFlight->second.push_back(std::move(success)); // the download in flight answers this request too
            return;
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
        return;
    }
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
            std::lock_guard lock(mutex_);
            downloadsInFlight_.erase(name);
        });
}

void FenceManager::downloadCompleted(const std::string& name, const std::string& word, std::int64_t now,
                                     FenceList fences, bool resultsFromCache) {
    Logger::log("Zone file retrived successfully.", LogCategory::ZONE, kGetFenceList, 92);
    FenceFetch::setLastZoneFile(name);
    if (!resultsFromCache) {
        saveFences(fences);
        FenceFetch::setLastCacheTime(now);
    }
    auto list = std::make_shared<const FenceIndex>(std::move(fences));
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

} // namespace bvgeo
