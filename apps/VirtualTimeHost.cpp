#include "VirtualTimeHost.hpp"

#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>

namespace bvgeo::cli {

VirtualTimeHost::VirtualTimeHost(std::string documentsDirectory, double startTime, std::shared_ptr<Console> console)
    : documents_(std::move(documentsDirectory)), console_(std::move(console)), time_(startTime),
      locations_(std::make_shared<SimulatedLocationService>()) {}

void VirtualTimeHost::install(std::shared_ptr<Reachability> reachability) {
    LinuxPlatformOptions options;
    options.documentsDirectory = documents_;
    options.mainQueueOnOwnThread = false;
    options.applicationName = "bvgeo";
    options.locationService = locations_;
    Platform bundle = makeLinuxPlatform(options);
    bundle.clock = time_.clock();
    bundle.mainQueue = time_.mainQueue();
    bundle.dispatchQueues = time_.queues();
    bundle.console = console_;
    if (reachability) bundle.reachability = std::move(reachability);
    installPlatform(bundle);
}

bool VirtualTimeHost::settle() { return time_.settle(); }

void VirtualTimeHost::advanceTo(double time) { time_.advanceTo(time); }

void VirtualTimeHost::deliver(double latitude, double longitude, double time) {
    deliver(Location{latitude, longitude, time});
}

void VirtualTimeHost::deliver(const Location& fix) {
    advanceTo(fix.timestamp);
    locations_->push(fix);
    settle();
}

} // namespace bvgeo::cli
