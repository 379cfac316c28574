#include "settings/TrackerSettings.hpp"

#include "logger/Logger.hpp"
#include "models/FenceFetch.hpp"

#include <bvgeo/platform/Platform.hpp>
#include "platform/SharedInstance.hpp"

namespace bvgeo {

TrackerSettings& TrackerSettings::sharedInstance() {
    static SharedInstance<TrackerSettings> slot;
    return slot.get([] { return std::unique_ptr<TrackerSettings>(new TrackerSettings()); });
}

configOptions TrackerSettings::config() const {
    std::lock_guard lock(mutex_);
    return config_;
}

void TrackerSettings::setConfig(const configOptions& config) {
    std::lock_guard lock(mutex_);
    config_ = config;
}

ExtendedOptions TrackerSettings::extendedOptions() const {
    std::lock_guard lock(mutex_);
    return extendedOptions_;
}

void TrackerSettings::setExtendedOptions(const ExtendedOptions& options) {
    std::lock_guard lock(mutex_);
    extendedOptions_ = options;
}

std::string TrackerSettings::apiUrl() const {
    std::lock_guard lock(mutex_);
    return apiUrl_;
}

void TrackerSettings::setApiUrl(std::string url) {
    std::lock_guard lock(mutex_);
    apiUrl_ = std::move(url);
}

std::string TrackerSettings::zonesBaseUrl() const {
    std::lock_guard lock(mutex_);
    return zonesBaseUrl_;
}

void TrackerSettings::setZonesBaseUrl(std::string url) {
    std::lock_guard lock(mutex_);
    zonesBaseUrl_ = std::move(url);
}

TriggerMode TrackerSettings::triggerMode() const {
    std::lock_guard lock(mutex_);
    return triggerMode_;
}

void TrackerSettings::setTriggerMode(TriggerMode mode) {
    std::lock_guard lock(mutex_);
    triggerMode_ = mode;
}

bool TrackerSettings::isDebug() const { return Logger::debugMode(); }

void TrackerSettings::setIsDebug(bool debug) { Logger::setDebugMode(debug); }

std::shared_ptr<const TrackerSettings::TriggerDelegate> TrackerSettings::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_;
}

void TrackerSettings::setDelegate(TriggerDelegate delegate) {
    auto replacement = delegate ? std::make_shared<const TriggerDelegate>(std::move(delegate)) : nullptr;
    {
        std::lock_guard lock(mutex_);
        delegate_.swap(replacement);
    }
    // The old delegate may be the host's last reference to its object: its
    // destructor runs here, outside the lock, free to call back in.
}

std::string TrackerSettings::deviceId() {
    std::string id;
    {
        std::lock_guard lock(deviceIdMutex_);
        id = FenceFetch::deviceId();
        if (!id.empty()) return id;
        id = platform().uuids->newUuid();
        platform().settings->setString(FenceFetch::kDeviceIdKey, id);
    }
    // The file is written with the lock let go: its store may warn a host's console.
    FenceFetch::synchronize();
    return id;
}

} // namespace bvgeo
