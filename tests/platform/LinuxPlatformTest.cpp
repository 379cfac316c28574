#include <bvgeo/platform/LinuxPlatform.hpp>
#include <bvgeo/testing/TestPlatform.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>

namespace bvgeo::testing {
namespace {

TEST(LinuxPlatform, DocumentsDefaultToXdgDataHomeElseHome) {
    const char* savedXdg = std::getenv("XDG_DATA_HOME");
    const std::string xdg = savedXdg ? savedXdg : "";
    ::setenv("XDG_DATA_HOME", "/data/home", 1);
    EXPECT_EQ(defaultDocumentsDirectory(), "/data/home/bvgeo");
    ::setenv("XDG_DATA_HOME", "", 1);
    const char* home = std::getenv("HOME");
    if (home) {
        EXPECT_EQ(defaultDocumentsDirectory(), std::string(home) + "/.local/share/bvgeo");
    }
    if (savedXdg)
        ::setenv("XDG_DATA_HOME", xdg.c_str(), 1);
    else
        ::unsetenv("XDG_DATA_HOME");
}

TEST(LinuxPlatform, WiresTheChosenDirectoriesAndServesTheMainQueue) {
    TestPlatform scratch; // for its temporary directory
    LinuxPlatformOptions options;
    options.documentsDirectory = scratch.documentsDirectory();
    options.powerSupplyDirectory = scratch.documentsDirectory() + "/no-power-supplies";
    options.applicationName = "host";
    const Platform p = makeLinuxPlatform(options);

    EXPECT_EQ(p.files->documentsDirectory(), scratch.documentsDirectory());
    p.settings->setInteger("bv1GeoLastCacheTime", 42);
    ASSERT_TRUE(p.settings->synchronize());
    EXPECT_TRUE(p.files->fileExists(scratch.documentsDirectory() + "/bvgeo-settings.json"));
    p.device->setBatteryMonitoringEnabled(true);
    EXPECT_EQ(p.device->batteryLevel(), -1.0f);
    EXPECT_EQ(p.application->name(), "host");
    EXPECT_NEAR(p.clock->currentTime(),
                std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(), 5.0);

    std::promise<bool> ranOnMainQueue;
    p.mainQueue->async([&] { ranOnMainQueue.set_value(p.mainQueue->isCurrent()); });
    auto ran = ranOnMainQueue.get_future();
    ASSERT_EQ(ran.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(ran.get());
}

} // namespace
} // namespace bvgeo::testing
