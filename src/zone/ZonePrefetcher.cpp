#include "zone/ZonePrefetcher.hpp"

#include "logger/Logger.hpp"
#include "network/BVReachability.hpp"
#include "platform/SharedInstance.hpp"
#include "settings/TrackerSettings.hpp"
#include "zone/ZoneCache.hpp"
#include "zone/ZoneCacheRules.hpp"
#include "zone/ZoneManager.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>
#include <cmath>

namespace bvgeo {

namespace {

constexpr std::string_view kFunction = "ZonePrefetcher";

void log(const std::string& text, int line) { Logger::log("Prefetch" + text, LogCategory::ZONE, kFunction, line); }

// Why a neighbour with a copy is asked for again.
std::string staleness(const std::optional<ZoneCache::Stamp>& held, std::int64_t now, std::int64_t cacheExpiration) {
    if (!held) return "";
    switch (cachedCopyAge(now, held->storedAt, cacheExpiration, held->preloaded)) {
    case CopyAge::Preloaded: return "; revalidating the preloaded copy";
    case CopyAge::FromTheFuture: return "; the cached copy is dated after now";
    default: return "; the cached copy has expired";
    }
}

} // namespace

ZonePrefetcher& ZonePrefetcher::sharedInstance() {
    static SharedInstance<ZonePrefetcher> slot;
    return slot.get([] { return std::unique_ptr<ZonePrefetcher>(new ZonePrefetcher()); });
}

std::uint64_t ZonePrefetcher::requestsStarted() const {
    std::lock_guard lock(mutex_);
    return started_;
}

void ZonePrefetcher::skip(const std::string& reason) {
    {
        std::lock_guard lock(mutex_);
        if (lastSkip_ == reason) return; // said once until something changes
        lastSkip_ = reason;
    }
    log(" skipped: " + reason, __LINE__);
}

void ZonePrefetcher::consider(double latitude, double longitude, std::int64_t now) {
    auto& settings = TrackerSettings::sharedInstance();
    const auto config = settings.config();
    const double distance = settings.extendedOptions().prefetchDistance;
    const auto near = neighboursWithin(latitude, longitude, config.zoneInterval, distance);
    if (near.empty()) return;

    auto& cache = ZoneCache::sharedInstance();
    const NeighbourCell* pick = nullptr;
    std::string zone;
    std::optional<ZoneCache::Stamp> held;
    for (const auto& cell : near) {
        std::string name = neighbourZoneName(latitude, longitude, config.zoneInterval, cell);
        auto stamp = cache.stamp(name);
        if (stamp && cachedCopyAge(now, stamp->storedAt, config.cacheExpiration, stamp->preloaded) == CopyAge::Fresh)
            continue;
        std::optional<std::int64_t> last;
        {
            std::lock_guard lock(mutex_);
            if (auto found = attempts_.find(name); found != attempts_.end()) last = found->second;
        }
        if (!isPrefetchDue(now, last, config.cacheExpiration)) continue;
        pick = &cell;
        zone = std::move(name);
        held = std::move(stamp);
        break;
    }
    if (!pick) return;
    {
        std::lock_guard lock(mutex_);
        if (inFlight_) return;
    }
    if (BVReachability::isConnectedToNetworkOfType() == BVReachabilityType::NotConnected) {
        skip("no network");
        return;
    }
    auto& device = *platform().device;
    if (!device.isBatteryMonitoringEnabled()) device.setBatteryMonitoringEnabled(true);
    if (const float level = device.batteryLevel(); isBatteryLow(device.batteryState(), level)) {
        skip("battery low (" + std::to_string(static_cast<int>(std::lround(level * 100.0f))) + "%)");
        return;
    }
    {
        std::lock_guard lock(mutex_);
        if (inFlight_) return;
        inFlight_ = true;
        ++started_;
        lastSkip_.clear();
        for (auto attempt = attempts_.begin(); attempt != attempts_.end();) {
            if (isPrefetchDue(now, attempt->second, config.cacheExpiration)) attempt = attempts_.erase(attempt);
            else ++attempt;
        }
        while (attempts_.size() >= kMaxAttempts) {
            attempts_.erase(std::min_element(attempts_.begin(), attempts_.end(), [](const auto& a, const auto& b) {
                return a.second < b.second;
            }));
        }
        attempts_[zone] = now;
    }
    log(": " + zone + ", " + std::to_string(static_cast<long long>(std::lround(pick->metres))) + " m from the cell's " +
            std::string(pick->side) + staleness(held, now, config.cacheExpiration),
        __LINE__);
    ZoneManager::requestZoneFile(
        settings.zonesBaseUrl() + zone, held ? held->lastModified : "",
        [this, zone, now](ZoneManager::ZoneFileAnswer& answer) {
            auto& cache = ZoneCache::sharedInstance();
            bool stored = false;
            const std::size_t count = answer.fences.size();
            if (answer.downloaded) {
                auto index = std::make_shared<const FenceIndex>(std::move(answer.fences));
                stored = cache.store(zone, answer.body, answer.lastModified, now, std::move(index), {});
            } else if (answer.status == 403) {
                stored = cache.store(zone, "", "", now, std::make_shared<const FenceIndex>(FenceList{}),
                                     {.noFences = true});
            }
            finished(zone, answer.status, answer.downloaded, count, stored);
        });
}

void ZonePrefetcher::finished(const std::string& zone, long status, bool downloaded, std::size_t fences,
                              bool stored) {
    std::string text;
    if (downloaded || status == 403) {
        text = stored ? zone + (downloaded ? " stored (" + std::to_string(fences) + " fences)"
                                           : " has no fences (status 403); stored")
                      : zone + " not kept: the cache holds a later copy, or only zones it must keep";
    } else if (status == 304) {
        text = zone + " not modified; the cached copy stays";
    } else {
        const auto config = TrackerSettings::sharedInstance().config();
        text = zone + " failed (status " + std::to_string(status) + "); not asked again for " +
               std::to_string(std::max(config.cacheExpiration, kMinPrefetchInterval)) + " s";
    }
    log(": " + text, __LINE__);
    std::lock_guard lock(mutex_);
    inFlight_ = false;
}

} // namespace bvgeo
