#include <bvgeo/testing/TestPlatform.hpp>

#include "platform/linux/PosixFileSystem.hpp"
#include "platform/linux/RandomUuidGenerator.hpp"
#include "platform/linux/StaticApplication.hpp"
#include "platform/SharedInstance.hpp"

#include <bvgeo/testing/FixedOffsetDateFormatter.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace bvgeo::testing {

namespace {

// Far more rounds than any test needs; reaching it means work keeps posting work.
constexpr int kMaxIdleRounds = 100000;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "bvgeo::testing::TestPlatform: %s\n", what);
    std::abort();
}

std::string makeTemporaryDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/bvgeo-test-XXXXXX";
    if (!::mkdtemp(pattern.data())) fail("cannot create a temporary documents directory");
    return pattern;
}

} // namespace

TestPlatform::TestPlatform(TestPlatformOptions options)
    : clock(std::make_shared<ManualClock>(options.startTime)),
      mainQueue(std::make_shared<ManualMainQueue>(clock)),
      dispatchQueues(std::make_shared<ManualDispatchQueues>(options.threadedQueues)),
      settings(std::make_shared<InMemorySettingsStore>()),
      console(std::make_shared<RecordingConsole>()),
      device(std::make_shared<TestDevice>()),
      locationService(std::make_shared<SimulatedLocationService>()),
      reachability(std::make_shared<TestReachability>()),
      options_(options),
      documents_(makeTemporaryDirectory()) {
    bundle_.clock = clock;
    bundle_.mainQueue = mainQueue;
    bundle_.dispatchQueues = dispatchQueues;
    bundle_.settings = settings;
    bundle_.files = std::make_shared<PosixFileSystem>(documents_);
    bundle_.uuids = std::make_shared<RandomUuidGenerator>();
    bundle_.console = console;
    bundle_.dateFormatter = std::make_shared<FixedOffsetDateFormatter>(options_.utcOffsetSeconds);
    bundle_.application = std::make_shared<StaticApplication>();
    bundle_.device = device;
    bundle_.locationService = locationService;
    bundle_.reachability = reachability;
}

TestPlatform::~TestPlatform() {
    std::error_code ignored;
    std::filesystem::remove_all(documents_, ignored);
}

Platform TestPlatform::bundle() const { return bundle_; }

void TestPlatform::installFresh() {
    resetAllSharedInstances();
    installPlatform(bundle());
}

void TestPlatform::runUntilIdle() {
    for (int round = 0; round < kMaxIdleRounds; ++round) {
        int ran = mainQueue->runPending() + dispatchQueues->runPending();
        // Threaded serial queues report 0 but may have posted main-queue work while
        // they were waited for.
        if (ran == 0 && mainQueue->pendingWork() == 0) return;
    }
    fail("runUntilIdle: work is still being posted after 100000 rounds");
}

void TestPlatform::advance(double seconds) {
    const double target = clock->currentTime() + seconds;
    for (int round = 0; round < kMaxIdleRounds; ++round) {
        runUntilIdle();
        auto due = mainQueue->nextTimerDue();
        if (!due || *due > target) {
            clock->set(target);
            runUntilIdle();
            return;
        }
        // Never backwards: a timer scheduled with a past due time fires at "now".
        if (*due > clock->currentTime()) clock->set(*due);
        mainQueue->fireDueTimers();
    }
    fail("advance: timers keep firing after 100000 rounds");
}

void TestPlatform::deliver(double latitude, double longitude, double time) {
    clock->set(time);
    locationService->push(latitude, longitude, time);
    runUntilIdle();
}

} // namespace bvgeo::testing
