#include "support/LibraryTest.hpp"

#include "network/BVReachability.hpp"

#include <bvgeo/testing/ForwardingPlatform.hpp>

namespace bvgeo::testing {
namespace {

class ForwardingPlatformTest : public LibraryTest {};

TEST_F(ForwardingPlatformTest, OneOverriddenOperationLeavesTheRestOfTheInstalledPlatform) {
    struct NoRouteOut final : ForwardingReachability {
        using ForwardingReachability::ForwardingReachability;
        BVReachabilityType isConnectedToNetworkOfType() override { return BVReachabilityType::NotConnected; }
    };
    const Platform before = platform();
    auto wrapper = installWrapped<NoRouteOut>();

    EXPECT_EQ(BVReachability::isConnectedToNetworkOfType(), BVReachabilityType::NotConnected);
    EXPECT_TRUE(BVReachability::isConnectedToNetwork()) << "the operation not overridden still asks the test network";
    sim().reachability->setReachable(false);
    EXPECT_FALSE(BVReachability::isConnectedToNetwork());
    EXPECT_EQ(wrapper->wrapped(), before.reachability);

    const Platform& after = platform();
    EXPECT_EQ(after.reachability, wrapper);
    EXPECT_EQ(after.clock, before.clock);
    EXPECT_EQ(after.mainQueue, before.mainQueue);
    EXPECT_EQ(after.dispatchQueues, before.dispatchQueues);
    EXPECT_EQ(after.settings, before.settings);
    EXPECT_EQ(after.files, before.files);
    EXPECT_EQ(after.uuids, before.uuids);
    EXPECT_EQ(after.console, before.console);
    EXPECT_EQ(after.dateFormatter, before.dateFormatter);
    EXPECT_EQ(after.application, before.application);
    EXPECT_EQ(after.device, before.device);
    EXPECT_EQ(after.locationService, before.locationService);
}

TEST_F(ForwardingPlatformTest, ABundleWrappedWholeBehavesAsTheOneItWraps) {
    Platform bundle = sim().bundle();
    wrapFacility<ForwardingClock>(bundle);
    wrapFacility<ForwardingMainQueue>(bundle);
    wrapFacility<ForwardingDispatchQueueFactory>(bundle);
    wrapFacility<ForwardingSettingsStore>(bundle);
    wrapFacility<ForwardingFileSystem>(bundle);
    wrapFacility<ForwardingUuidGenerator>(bundle);
    wrapFacility<ForwardingConsole>(bundle);
    wrapFacility<ForwardingDateFormatter>(bundle);
    wrapFacility<ForwardingApplication>(bundle);
    wrapFacility<ForwardingDevice>(bundle);
    wrapFacility<ForwardingLocationService>(bundle);
    wrapFacility<ForwardingReachability>(bundle);
    ASSERT_TRUE(installPlatform(bundle));
    const Platform& p = platform();

    bool fired = false;
    p.mainQueue->scheduleTimer(30, 0, [&] { fired = true; });
    sim().advance(30);
    EXPECT_TRUE(fired) << "the test's pumping reaches timers set through the wrapper";
    EXPECT_EQ(p.clock->currentTime(), sim().clock->currentTime());

    std::vector<std::string> ran;
    auto queue = p.dispatchQueues->makeSerialQueue("ProcessInsideFences");
    queue->async([&] { ran.push_back("serial"); });
    sim().runUntilIdle();
    EXPECT_EQ(ran, std::vector<std::string>{"serial"});

    p.settings->setString("bv1GeoLastZoneFile", "zone_1_2.json");
    EXPECT_EQ(sim().settings->string("bv1GeoLastZoneFile"), "zone_1_2.json");
    EXPECT_EQ(p.files->documentsDirectory(), sim().documentsDirectory());
    p.console->warn("disk full");
    EXPECT_EQ(sim().console->logLines(), std::vector<std::string>{"disk full"});
    EXPECT_EQ(p.uuids->newUuid().size(), 36u);
    EXPECT_EQ(p.dateFormatter->format(0, "yyyy-MM-dd HH:mm"), "1970-01-01 00:00");
    EXPECT_EQ(p.application->applicationState(), ApplicationState::Active);
    sim().device->setBattery(BatteryState::Charging, 0.25f);
    p.device->setBatteryMonitoringEnabled(true);
    EXPECT_EQ(p.device->batteryLevel(), 0.25f);
    EXPECT_NE(p.locationService->makeLocationManager(), nullptr);
    sim().reachability->setType(BVReachabilityType::WWAN);
    EXPECT_EQ(p.reachability->isConnectedToNetworkOfType(), BVReachabilityType::WWAN);
}

} // namespace
} // namespace bvgeo::testing
