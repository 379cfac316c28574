// BVTrigger: the record of one fence event (enter, linger or exit) as the host
// receives it. A plain value object; safe to read from any thread once made.
#pragma once

#include <bvgeo/ConfigOptions.hpp>
#include <bvgeo/Export.hpp>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>

namespace bvgeo {

class BVGEO_API BVTrigger {
public:
    BVTrigger() = default;
    BVTrigger(std::string deviceId, TriggerType event, std::int64_t timestamp, std::string fenceId,
              std::string fenceName, TriggerLocationEventType locationEvent)
        : deviceId(std::move(deviceId)), event(event), timestamp(timestamp), fenceId(std::move(fenceId)),
          fenceName(std::move(fenceName)), locationEvent(locationEvent) {}
    virtual ~BVTrigger() = default;

    const std::string& getDeviceId() const { return deviceId; }
    std::string getEvent() const { return std::string(rawValue(event)); }
    std::int64_t getTimestamp() const { return timestamp; }
    const std::string& getFenceId() const { return fenceId; }
    const std::string& getFenceName() const { return fenceName; }

    // The trigger report's body: exactly "deviceId", "event", "timestamp", "fenceId",
    // in this order.
    nlohmann::ordered_json toParameters() const;

    std::string deviceId;
    TriggerType event = TriggerType::Enter;
    std::int64_t timestamp = 0;
    std::string fenceId;
    std::string fenceName;
    TriggerLocationEventType locationEvent = TriggerLocationEventType::Unknown;
};

} // namespace bvgeo
