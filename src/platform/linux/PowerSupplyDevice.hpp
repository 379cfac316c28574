// PowerSupplyDevice: the machine as the library's "device", with the battery read
// from a power-supply directory in the layout of /sys/class/power_supply (one
// folder per supply with "type", "status" and "capacity" files). By default the
// files are read on every query, so the answer is always current; with a `maxAge`
// one reading of state and level together serves every query for that long (of
// real time), which is how the Linux platform installs it: the tracker asks on every
// position. Monitoring starts off, as on a phone. Thread-safe.
#pragma once

#include "platform/RecentValue.hpp"

#include <bvgeo/platform/Device.hpp>

#include <atomic>
#include <chrono>
#include <utility>
#include <optional>
#include <string>

namespace bvgeo {

class PowerSupplyDevice final : public Device {
public:
    explicit PowerSupplyDevice(std::string powerSupplyDirectory = "/sys/class/power_supply",
                               std::chrono::steady_clock::duration maxAge = {},
                               RecentValue<std::pair<BatteryState, float>>::SteadyNow steadyNow = {});

    void setBatteryMonitoringEnabled(bool enabled) override;
    bool isBatteryMonitoringEnabled() const override;
    BatteryState batteryState() const override;
    float batteryLevel() const override;
    std::string name() const override;
    std::string model() const override;
    std::string systemName() const override;
    std::string systemVersion() const override;

private:
    // The first battery's folder, in name order; absent when there is none.
    std::optional<std::string> batteryFolder() const;
    std::pair<BatteryState, float> readBattery() const;

    const std::string directory_;
    std::atomic<bool> monitoring_{false};
    mutable RecentValue<std::pair<BatteryState, float>> battery_;
};

} // namespace bvgeo
