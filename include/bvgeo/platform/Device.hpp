// Device: battery state and level, readable only while battery monitoring is on
// (off, the state is Unknown and the level -1.0, as on a phone). Thread-safe.
#pragma once

#include <bvgeo/Export.hpp>

#include <string>

namespace bvgeo {

enum class BatteryState : int { Unknown = 0, Unplugged = 1, Charging = 2, Full = 3 };

class BVGEO_API Device {
public:
    virtual ~Device() = default;

    virtual void setBatteryMonitoringEnabled(bool enabled) = 0;
    virtual bool isBatteryMonitoringEnabled() const = 0;

    virtual BatteryState batteryState() const = 0;

    // Fraction 0.0 to 1.0; -1.0 when unknown.
    virtual float batteryLevel() const = 0;

    // The name the device's owner gave it (on Linux, the host name).
    virtual std::string name() const = 0;
    virtual std::string model() const = 0;
    virtual std::string systemName() const = 0;
    virtual std::string systemVersion() const = 0;
};

} // namespace bvgeo
