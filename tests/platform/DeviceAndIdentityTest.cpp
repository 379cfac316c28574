#include "platform/linux/PowerSupplyDevice.hpp"
#include "platform/linux/RandomUuidGenerator.hpp"

#include <bvgeo/testing/TestPlatform.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

namespace bvgeo::testing {
namespace {

TEST(RandomUuidGenerator, MakesDistinctUpperCaseVersion4Uuids) {
    const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    RandomUuidGenerator first, second;
    std::set<std::string> seen;
    for (int i = 0; i < 2000; ++i) {
        auto uuid = (i % 2 ? first : second).newUuid();
        EXPECT_TRUE(std::regex_match(uuid, canonical)) << uuid;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 2000u) << "two generators must not repeat each other either";
}

class PowerSupplyDeviceTest : public ::testing::Test {
protected:
    void write(const std::string& relative, const std::string& contents) {
        auto path = std::filesystem::path(sim.documentsDirectory()) / relative;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << contents;
    }

    TestPlatform sim; // for its temporary directory
};

TEST_F(PowerSupplyDeviceTest, ReadsTheBatteryWhileMonitoringIsOn) {
    write("AC/type", "Mains\n");
    write("AC/online", "1\n");
    write("BAT0/type", "Battery\n");
    write("BAT0/status", "Charging\n");
    write("BAT0/capacity", "57\n");
    PowerSupplyDevice device(sim.documentsDirectory());

    EXPECT_FALSE(device.isBatteryMonitoringEnabled());
    EXPECT_EQ(device.batteryState(), BatteryState::Unknown) << "off, as on a phone";
    EXPECT_EQ(device.batteryLevel(), -1.0f);

    device.setBatteryMonitoringEnabled(true);
    EXPECT_EQ(device.batteryState(), BatteryState::Charging);
    EXPECT_FLOAT_EQ(device.batteryLevel(), 0.57f);

    const std::pair<const char*, BatteryState> statuses[] = {
        {"Discharging", BatteryState::Unplugged}, {"Not charging", BatteryState::Unplugged},
        {"Full", BatteryState::Full},             {"Unknown", BatteryState::Unknown},
        {"", BatteryState::Unknown},
    };
    for (auto [text, state] : statuses) {
        write("BAT0/status", std::string(text) + "\n");
        EXPECT_EQ(device.batteryState(), state) << text;
    }
    write("BAT0/capacity", "100\n");
    EXPECT_FLOAT_EQ(device.batteryLevel(), 1.0f);

    device.setBatteryMonitoringEnabled(false);
    EXPECT_EQ(device.batteryState(), BatteryState::Unknown);
    EXPECT_EQ(device.batteryLevel(), -1.0f);
}

TEST_F(PowerSupplyDeviceTest, WithAMaximumAgeOneReadingServesUntilItIsThatOld) {
    write("BAT0/type", "Battery\n");
    write("BAT0/status", "Charging\n");
    write("BAT0/capacity", "57\n");
    auto now = std::chrono::steady_clock::time_point{} + std::chrono::hours(1);
    PowerSupplyDevice device(sim.documentsDirectory(), std::chrono::seconds(1), [&] { return now; });
    device.setBatteryMonitoringEnabled(true);
    EXPECT_EQ(device.batteryState(), BatteryState::Charging);

    write("BAT0/status", "Full\n");
    write("BAT0/capacity", "100\n");
    now += std::chrono::milliseconds(999);
    EXPECT_EQ(device.batteryState(), BatteryState::Charging) << "the files are not read again within a second";
    EXPECT_FLOAT_EQ(device.batteryLevel(), 0.57f) << "state and level come from one reading";
    now += std::chrono::milliseconds(1);
    EXPECT_EQ(device.batteryState(), BatteryState::Full);
    EXPECT_FLOAT_EQ(device.batteryLevel(), 1.0f);

    write("BAT0/status", "Discharging\n");
    device.setBatteryMonitoringEnabled(false);
    EXPECT_EQ(device.batteryState(), BatteryState::Unknown) << "off is off, whatever was read";
    device.setBatteryMonitoringEnabled(true);
    EXPECT_EQ(device.batteryState(), BatteryState::Unplugged) << "switching monitoring on reads afresh";
}

TEST_F(PowerSupplyDeviceTest, WithoutABatteryStateAndLevelAreUnknown) {
    write("AC/type", "Mains\n");
    for (const auto& directory : {sim.documentsDirectory(), sim.documentsDirectory() + "/missing"}) {
        PowerSupplyDevice device(directory);
        device.setBatteryMonitoringEnabled(true);
        EXPECT_EQ(device.batteryState(), BatteryState::Unknown) << directory;
        EXPECT_EQ(device.batteryLevel(), -1.0f) << directory;
    }
}

} // namespace
} // namespace bvgeo::testing
