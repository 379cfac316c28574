#include "platform/linux/PowerSupplyDevice.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <vector>

#include <sys/utsname.h>

namespace bvgeo {

namespace {

// First line of a small sysfs-style file, without surrounding blanks.
std::optional<std::string> readValue(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line)) return std::nullopt;
    const auto first = line.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return std::string();
    const auto last = line.find_last_not_of(" \t\r\n");
    return line.substr(first, last - first + 1);
}

struct utsname machine() {
    struct utsname info {};
    ::uname(&info);
    return info;
}

} // namespace

PowerSupplyDevice::PowerSupplyDevice(std::string powerSupplyDirectory, std::chrono::steady_clock::duration maxAge,
                                     RecentValue<std::pair<BatteryState, float>>::SteadyNow steadyNow)
    : directory_(std::move(powerSupplyDirectory)), battery_(maxAge, std::move(steadyNow)) {}

void PowerSupplyDevice::setBatteryMonitoringEnabled(bool enabled) {
    // A reading from before monitoring was switched on may be long out of date.
    if (enabled && !monitoring_.load(std::memory_order_relaxed)) battery_.forget();
    monitoring_.store(enabled, std::memory_order_relaxed);
}

bool PowerSupplyDevice::isBatteryMonitoringEnabled() const { return monitoring_.load(std::memory_order_relaxed); }

std::optional<std::string> PowerSupplyDevice::batteryFolder() const {
    std::error_code error;
    std::vector<std::filesystem::path> supplies;
    for (std::filesystem::directory_iterator it(directory_, error), end; !error && it != end; it.increment(error))
        supplies.push_back(it->path());
    std::sort(supplies.begin(), supplies.end());
    for (const auto& supply : supplies)
        if (readValue(supply / "type") == "Battery") return supply.string();
    return std::nullopt;
}

BatteryState PowerSupplyDevice::batteryState() const {
    if (!isBatteryMonitoringEnabled()) return BatteryState::Unknown;
    return battery_.get([this] { return readBattery(); }).first;
}

float PowerSupplyDevice::batteryLevel() const {
    if (!isBatteryMonitoringEnabled()) return -1.0f;
    return battery_.get([this] { return readBattery(); }).second;
}

// State and level in one pass over the directory: the tracker asks for both.
std::pair<BatteryState, float> PowerSupplyDevice::readBattery() const {
    auto folder = batteryFolder();
    if (!folder) return {BatteryState::Unknown, -1.0f};
    BatteryState state = BatteryState::Unknown;
    if (auto status = readValue(std::filesystem::path(*folder) / "status")) {
        if (*status == "Discharging" || *status == "Not charging") state = BatteryState::Unplugged;
        else if (*status == "Charging") state = BatteryState::Charging;
        else if (*status == "Full") state = BatteryState::Full;
    }
    float level = -1.0f;
    if (auto capacity = readValue(std::filesystem::path(*folder) / "capacity")) {
        int percent = 0;
        auto [end, error] = std::from_chars(capacity->data(), capacity->data() + capacity->size(), percent);
        if (error == std::errc() && end == capacity->data() + capacity->size())
            level = static_cast<float>(std::clamp(percent, 0, 100)) / 100.0f;
    }
    return {state, level};
}

std::string PowerSupplyDevice::name() const { return machine().nodename; }
std::string PowerSupplyDevice::model() const { return machine().machine; }
std::string PowerSupplyDevice::systemName() const { return machine().sysname; }
std::string PowerSupplyDevice::systemVersion() const { return machine().release; }

} // namespace bvgeo
