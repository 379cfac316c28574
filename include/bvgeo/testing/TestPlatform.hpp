// The testing bundle: a platform whose time, main queue and serial queues move only
// when the test moves them, an in-memory settings store, a real documents directory
// in a fresh temporary folder, a console that records its lines, a fixed time zone,
// a simulated location service and a network whose reachability the test sets.
// Host applications can test against bvgeo with it the same way the library's own
// tests do.
//
// Everything runs on the test's thread: pumping runs queued work inline, in order.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/virtualtime/ManualClock.hpp>
#include <bvgeo/platform/virtualtime/ManualMainQueue.hpp>
#include <bvgeo/platform/virtualtime/ManualDispatchQueues.hpp>
#include <bvgeo/testing/RecordingConsole.hpp>
#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>
#include <bvgeo/testing/TestDevice.hpp>
#include <bvgeo/testing/TestReachability.hpp>
#include <bvgeo/testing/InMemorySettingsStore.hpp>

#include <memory>
#include <string>

namespace bvgeo::testing {

// Tests drive the virtual-time bundle by these names.
using virtualtime::ManualClock;
using virtualtime::ManualDispatchQueues;
using virtualtime::ManualMainQueue;

struct BVGEO_API TestPlatformOptions {
    // Wall-clock start, seconds since 1970-01-01 UTC.
    double startTime = 1'500'000'000.0;
    // Offset of the "local" time zone from UTC, seconds.
    int utcOffsetSeconds = 0;
    // Serial queues on real threads instead of pumped by hand (for thread-safety tests).
    bool threadedQueues = false;
};

class BVGEO_API TestPlatform {
public:
    explicit TestPlatform(TestPlatformOptions options = {});
    ~TestPlatform(); // removes the temporary documents directory

    TestPlatform(const TestPlatform&) = delete;
    TestPlatform& operator=(const TestPlatform&) = delete;

    // The bundle to install; its members are the objects below.
    Platform bundle() const;

    // Empties every shared instance of the library and installs this bundle, so a
    // test starts from a clean process state.
    void installFresh();

    // Runs main-queue and serial-queue work until none is left (timers that are not
    // due stay). Bounded: fails loudly after too many rounds instead of hanging.
    void runUntilIdle();

    // Moves the clock forward by `seconds`, stopping at each due timer on the way to
    // fire it and run everything it started.
    void advance(double seconds);

    // Pushes one fix through the simulated location service at the fix's time: the
    // clock is set to `time` first, then everything the fix started runs.
    void deliver(double latitude, double longitude, double time);

    const std::string& documentsDirectory() const { return documents_; }

    std::shared_ptr<ManualClock> clock;
    std::shared_ptr<ManualMainQueue> mainQueue;
    std::shared_ptr<ManualDispatchQueues> dispatchQueues;
    std::shared_ptr<InMemorySettingsStore> settings;
    std::shared_ptr<RecordingConsole> console;
    std::shared_ptr<TestDevice> device;
    std::shared_ptr<SimulatedLocationService> locationService;
    std::shared_ptr<TestReachability> reachability;

private:
    TestPlatformOptions options_;
    std::string documents_;
    Platform bundle_;
};

} // namespace bvgeo::testing
