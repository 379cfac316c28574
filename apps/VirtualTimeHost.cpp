#include "VirtualTimeHost.hpp"

#include "request/HTTPClient.hpp"

#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>

namespace bvgeo::cli {

namespace {
// Bounds that only a library stuck in a loop or a hung server reaches.
constexpr int kMaxSettleRounds = 100'000;
constexpr double kTransferWaitSeconds = 60.0;
constexpr int kMaxTimersPerAdvance = 1'000'000;
} // namespace

VirtualTimeHost::VirtualTimeHost(std::string documentsDirectory, double startTime, std::shared_ptr<Console> console)
    : documents_(std::move(documentsDirectory)), console_(std::move(console)),
      clock_(std::make_shared<testing::ManualClock>(startTime)),
      mainQueue_(std::make_shared<testing::ManualMainQueue>(clock_)),
      queues_(std::make_shared<testing::ManualDispatchQueues>()),
      locations_(std::make_shared<SimulatedLocationService>()) {}

void VirtualTimeHost::install() {
    LinuxPlatformOptions options;
    options.documentsDirectory = documents_;
    options.mainQueueOnOwnThread = false;
    options.applicationName = "bvgeo";
    options.locationService = locations_;
    Platform bundle = makeLinuxPlatform(options);
    bundle.clock = clock_;
    bundle.mainQueue = mainQueue_;
    bundle.dispatchQueues = queues_;
    bundle.console = console_;
    installPlatform(bundle);
}

bool VirtualTimeHost::settle() {
    auto& http = HTTPClient::sharedInstance();
    for (int round = 0; round < kMaxSettleRounds; ++round) {
        if (!http.waitUntilIdle(kTransferWaitSeconds)) return false;
        const int ran = mainQueue_->runPending() + queues_->runPending();
        if (ran == 0 && http.inFlight() == 0 && mainQueue_->pendingWork() == 0) return true;
    }
    return false;
}

std::optional<double> VirtualTimeHost::nextTimer() const { return mainQueue_->nextTimerDue(); }

void VirtualTimeHost::advanceTo(double time) {
    settle();
    for (int fired = 0; fired < kMaxTimersPerAdvance; ++fired) {
        auto due = mainQueue_->nextTimerDue();
        if (!due || *due > time) break;
        if (*due > clock_->currentTime()) clock_->set(*due);
        mainQueue_->fireDueTimers();
        settle();
    }
    if (time > clock_->currentTime()) clock_->set(time);
}

void VirtualTimeHost::deliver(double latitude, double longitude, double time) {
    advanceTo(time);
    locations_->push(latitude, longitude, time);
    settle();
}

} // namespace bvgeo::cli
