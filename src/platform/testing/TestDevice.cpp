#include <bvgeo/testing/TestDevice.hpp>

namespace bvgeo::testing {

void TestDevice::setBatteryMonitoringEnabled(bool enabled) {
    std::lock_guard lock(mutex_);
    monitoring_ = enabled;
}

bool TestDevice::isBatteryMonitoringEnabled() const {
    std::lock_guard lock(mutex_);
    return monitoring_;
}

BatteryState TestDevice::batteryState() const {
    std::lock_guard lock(mutex_);
    return monitoring_ ? state_ : BatteryState::Unknown;
}

float TestDevice::batteryLevel() const {
    std::lock_guard lock(mutex_);
    return monitoring_ ? level_ : -1.0f;
}

void TestDevice::setBattery(BatteryState state, float level) {
    std::lock_guard lock(mutex_);
    state_ = state;
    level_ = level;
}

} // namespace bvgeo::testing
