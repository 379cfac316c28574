// A host application on the public API only: it installs the Linux platform with a
// data directory and a simulated location source, configures the tracker (pointed
// at a zone/trigger server when one is given), registers a delegate, feeds a short
// walk and prints what it was told.
//   bvgeo_host DATA_DIR [SERVER_URL]     e.g. SERVER_URL=http://127.0.0.1:8080/
#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>
#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <string>
#include <mutex>

namespace {

// Called on the library's main queue, which the Linux platform runs on a thread of
// its own here; the host's main thread waits for the first trigger.
class Printer final : public bvgeo::BVGeoTrackerDelegate {
public:
    void BVGeoTrackerOnFenceTriggered(bvgeo::BVGeoTracker&, std::shared_ptr<bvgeo::BVTrigger> trigger) override {
        std::printf("%s %s (%s)\n", trigger->getEvent().c_str(), trigger->getFenceName().c_str(),
                    trigger->getFenceId().c_str());
        std::lock_guard lock(mutex_);
        ++count_;
        arrived_.notify_all();
    }
    bool waitForTrigger(std::chrono::seconds timeout) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, timeout, [this] { return count_ > 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    int count_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    using namespace bvgeo;
    if (argc < 2) {
        std::fprintf(stderr, "usage: bvgeo_host DATA_DIR [SERVER_URL]\n");
        return 2;
    }
    auto positions = std::make_shared<SimulatedLocationService>();
    LinuxPlatformOptions options;
    options.documentsDirectory = argv[1];
    options.locationService = positions;
    if (!installPlatform(makeLinuxPlatform(options))) return 1;

    auto& tracker = BVGeoTracker::sharedInstance();
    if (argc > 2) {
        const std::string server = argv[2];
        tracker.setEnvironmentURLs(BVEnvironment::DEVELOPMENT, {server + "api/v1/app/", server});
    }
    tracker.configure("demo", TriggerModes::Both, BVEnvironments::Development);
    auto printer = std::make_shared<Printer>();
    tracker.setTriggerDelegate(printer);
    tracker.start();

    // A short walk through Sittingbourne, Kent, a fix every 30 s, ~60 m apart.
    const double walk[][2] = {{51.34120, 0.73170}, {51.34170, 0.73200}, {51.34225, 0.73230}, {51.34280, 0.73265}};
    double t = 1'400'000'000;
    for (const auto& fix : walk) positions->push(fix[0], fix[1], t += 30);
    // The zone download and the trigger run on the library's threads.
    if (argc > 2 && !printer->waitForTrigger(std::chrono::seconds(30))) std::printf("no trigger within 30 s\n");
    tracker.stop();
    // Before the process ends: the last fixes decided and their reports sent.
    const FlushResult left = tracker.flush(10.0);

    std::printf("device %s: %zu triggers stored, %zu reports owed\n", tracker.getDeviceId().c_str(),
                tracker.listTriggers().size(), left.reportsOwed);
    return 0;
}
