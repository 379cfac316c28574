#include <bvgeo/platform/linux/PowerSupplyDevice.hpp>

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

PowerSupplyDevice::PowerSupplyDevice(std::string powerSupplyDirectory) : directory_(std::move(powerSupplyDirectory)) {}

void PowerSupplyDevice::setBatteryMonitoringEnabled(bool enabled) {
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
    auto folder = batteryFolder();
    if (!folder) return BatteryState::Unknown;
    auto status = readValue(std::filesystem::path(*folder) / "status");
    if (!status) return BatteryState::Unknown;
    if (*status == "Discharging" || *status == "Not charging") return BatteryState::Unplugged;
    if (*status == "Charging") return BatteryState::Charging;
    if (*status == "Full") return BatteryState::Full;
    return BatteryState::Unknown;
}

float PowerSupplyDevice::batteryLevel() const {
    if (!isBatteryMonitoringEnabled()) return -1.0f;
    auto folder = batteryFolder();
    if (!folder) return -1.0f;
    auto capacity = readValue(std::filesystem::path(*folder) / "capacity");
    if (!capacity) return -1.0f;
    int percent = 0;
    auto [end, error] = std::from_chars(capacity->data(), capacity->data() + capacity->size(), percent);
    if (error != std::errc() || end != capacity->data() + capacity->size()) return -1.0f;
    return static_cast<float>(std::clamp(percent, 0, 100)) / 100.0f;
}

std::string PowerSupplyDevice::name() const { return machine().nodename; }
std::string PowerSupplyDevice::model() const { return machine().machine; }
std::string PowerSupplyDevice::systemName() const { return machine().sysname; }
std::string PowerSupplyDevice::systemVersion() const { return machine().release; }

} // namespace bvgeo
