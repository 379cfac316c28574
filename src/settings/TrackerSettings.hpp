// TrackerSettings: what the host told the tracker, in the one place the services
// read it: the tuning record, the extended options, the two base URLs of the
// configured environment, the trigger mode, the debug flag, the host's trigger
// delegate and the device identifier. The facade writes it (from whichever thread
// the host calls on); services read it on their queues, the transport thread and
// the location thread, and always get whole copies. Every member is safe from any
// thread: a lock held for a copy, never while calling out.
//
// Callers must not keep the reference across a resetAllSharedInstances(). A
// delegate call already under way when the host replaces the delegate finishes
// with the old one.
#pragma once

#include <bvgeo/BVTrigger.hpp>
#include <bvgeo/ConfigOptions.hpp>
#include <bvgeo/ExtendedOptions.hpp>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace bvgeo {

class TrackerSettings {
public:
    // Hands one stored trigger to the host; called on the main queue only.
    using TriggerDelegate = std::function<void(std::shared_ptr<BVTrigger> trigger)>;

    static TrackerSettings& sharedInstance();

    configOptions config() const;
    void setConfig(const configOptions& config);

    ExtendedOptions extendedOptions() const;
    void setExtendedOptions(const ExtendedOptions& options);

    // Base URLs of the configured environment, application id included; empty
    // until a configure succeeds.
    std::string apiUrl() const;
    void setApiUrl(std::string url);
    std::string zonesBaseUrl() const;
    void setZonesBaseUrl(std::string url);

    TriggerMode triggerMode() const;
    void setTriggerMode(TriggerMode mode);

    // Lives with the logger, which needs it on every line to decide the console echo.
    bool isDebug() const;
    void setIsDebug(bool debug);

    // Null when the host has no delegate. The copy keeps the delegate alive for
    // the call that took it, whatever the host sets meanwhile.
    std::shared_ptr<const TriggerDelegate> delegate() const;
    void setDelegate(TriggerDelegate delegate); // an empty function removes it

    // The stored device identifier, made and stored on first use: two first
    // callers at once get the same one.
    std::string deviceId();

    TrackerSettings(const TrackerSettings&) = delete;
    TrackerSettings& operator=(const TrackerSettings&) = delete;

private:
    TrackerSettings() = default;

    mutable std::mutex mutex_; // guards the fields below; held for a copy
    configOptions config_;
    ExtendedOptions extendedOptions_;
    std::string apiUrl_;
    std::string zonesBaseUrl_;
    TriggerMode triggerMode_ = TriggerMode::BOTH;
    std::shared_ptr<const TriggerDelegate> delegate_;

    std::mutex deviceIdMutex_; // spans the read and the setting of a new identifier, not the file write
};

} // namespace bvgeo
