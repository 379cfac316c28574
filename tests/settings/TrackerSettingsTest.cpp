#include "support/LibraryTest.hpp"

#include "settings/TrackerSettings.hpp"
#include "trigger/TriggerManager.hpp"

#include <bvgeo/BVGeoTracker.hpp>

#include <atomic>
#include <thread>

namespace bvgeo::testing {
namespace {

class CountingDelegate : public BVGeoTrackerDelegate {
public:
    void BVGeoTrackerOnFenceTriggered(BVGeoTracker&, std::shared_ptr<BVTrigger>) override { calls.fetch_add(1); }
    std::atomic<int> calls{0};
};

class TrackerSettingsTest : public LibraryTest {};

// The host may tune the tracker from its own thread while the queues decide: each
// reading must be one whole call's values, never half of two.
TEST_F(TrackerSettingsTest, QueuesReadWholeSettingsWhileTheHostWritesThem) {
    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.configure("app", TriggerModes::LocalOnly, BVEnvironments::Production);
    tracker.setParameters(5.0, 10.0, 60, 0.1, 30, 600, 15.0);
    ExtendedOptions small, large;
    small.outboxMaxReports = 1;
    small.fenceListingLimit = 1;
    large.outboxMaxReports = 2;
    large.fenceListingLimit = 2;
    tracker.setExtendedOptions(small);
    auto first = std::make_shared<CountingDelegate>();
    auto second = std::make_shared<CountingDelegate>();

    constexpr int kWrites = 2'000;
    std::atomic<bool> hostDone{false};
    std::thread host([&] {
        for (int i = 0; i < kWrites; ++i) {
            if (i % 2)
                tracker.setParameters(5.0, 10.0, 60, 0.1, 30, 600, 15.0);
            else
                tracker.setParameters(50.0, 100.0, 600, 0.2, 300, 6000, 150.0);
            tracker.setExtendedOptions(i % 2 ? small : large);
            tracker.setTriggerDelegate(i % 3 == 0 ? nullptr : i % 3 == 1 ? first : second);
        }
        hostDone = true;
    });

    auto& settings = TrackerSettings::sharedInstance();
    auto trigger = std::make_shared<BVTrigger>("device", TriggerType::Enter, 0, "f", "n",
                                               TriggerLocationEventType::Regular);
    int torn = 0;
    for (int read = 0; read < 10'000'000 && (!hostDone || read < 100); ++read) {
        const auto config = settings.config();
        if (config.lingerTime * 20 != config.maxLingerTime || config.cacheExpiration != config.lingerTime * 2 ||
            config.locationAccuracy * 2 != config.locationDistanceFilt)
            ++torn;
        const auto options = settings.extendedOptions();
        if (options.outboxMaxReports != options.fenceListingLimit) ++torn;
        if (auto delegate = settings.delegate()) (*delegate)(trigger);
    }
    host.join();

    EXPECT_EQ(torn, 0);
    EXPECT_EQ(tracker.config(), settings.config()) << "the facade answers what the services read";
    EXPECT_EQ(tracker.config().lingerTime, 30) << "the last call wins";
    EXPECT_EQ(tracker.delegate(), first);
}

// A trigger goes to the delegate the host has when the main queue gets to it; one
// the host removed meanwhile is not called.
TEST_F(TrackerSettingsTest, TheDelegateIsTheOneSetWhenTheMainQueueDelivers) {
    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.configure("app", TriggerModes::LocalOnly, BVEnvironments::Production);
    auto before = std::make_shared<CountingDelegate>();
    auto after = std::make_shared<CountingDelegate>();

    tracker.setTriggerDelegate(before);
    TriggerManager::sendTrigger("f1", "Hall", TriggerType::Enter, TriggerLocationEventType::Regular);
    tracker.setTriggerDelegate(after);
    EXPECT_EQ(after->calls, 0) << "nothing is delivered off the main queue";
    sim().mainQueue->runPending();
    EXPECT_EQ(before->calls, 0);
    EXPECT_EQ(after->calls, 1);

    TriggerManager::sendTrigger("f1", "Hall", TriggerType::Exit, TriggerLocationEventType::Regular);
    tracker.setTriggerDelegate(nullptr);
    sim().mainQueue->runPending();
    EXPECT_EQ(after->calls, 1);
    EXPECT_EQ(tracker.listTriggers().size(), 2u) << "both triggers were stored all the same";
}

} // namespace
} // namespace bvgeo::testing
