// TestDevice: a device whose battery the test sets. As on a phone, state and level
// read Unknown and -1.0 while monitoring is off.
#pragma once

#include <bvgeo/platform/Device.hpp>
#include <bvgeo/Export.hpp>

#include <mutex>

namespace bvgeo::testing {

class BVGEO_API TestDevice final : public Device {
public:
    void setBatteryMonitoringEnabled(bool enabled) override;
    bool isBatteryMonitoringEnabled() const override;
    BatteryState batteryState() const override;
    float batteryLevel() const override;
    std::string name() const override { return "Test Device"; }
    std::string model() const override { return "TestDevice"; }
    std::string systemName() const override { return "Linux"; }
    std::string systemVersion() const override { return "0"; }

    // What the battery reports while monitoring is on.
    void setBattery(BatteryState state, float level);

private:
    mutable std::mutex mutex_;
    bool monitoring_ = false;
    BatteryState state_ = BatteryState::Unplugged;
    float level_ = 0.5f;
};

} // namespace bvgeo::testing
