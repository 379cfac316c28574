// The default platform on Linux: system clock, a main queue on a thread of the
// library's own (or on the host's thread), thread-backed serial queues, a settings
// file beside the database, the documents directory the host chose, the battery
// under /sys/class/power_supply and reachability from the routing tables. Positions
// come from whatever location service the host passes; without one, a simulated
// service that the host feeds.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/platform/Platform.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

struct BVGEO_API LinuxPlatformOptions {
    // Empty: $XDG_DATA_HOME/bvgeo, else ~/.local/share/bvgeo.
    std::string documentsDirectory;

    // True: the library runs the main queue on a thread of its own. False: the host
    // calls RunLoopMainQueue::run() on its own thread.
    bool mainQueueOnOwnThread = true;

    ApplicationState applicationState = ApplicationState::Active;
    std::optional<std::vector<std::string>> backgroundModes = std::vector<std::string>{"location"};
    std::string shortVersion = "1.0";
    std::string applicationName = "bvgeo-host";

    // Defaults to a SimulatedLocationService.
    std::shared_ptr<LocationService> locationService;

    // Where the battery is read; tests point it at a directory of their own.
    std::string powerSupplyDirectory = "/sys/class/power_supply";
};

// The default documents directory for the current environment variables.
BVGEO_API std::string defaultDocumentsDirectory();

BVGEO_API Platform makeLinuxPlatform(const LinuxPlatformOptions& options = {});

// Live positions from a running gpsd, for LinuxPlatformOptions::locationService:
// already started, it keeps reconnecting while gpsd is away and stops when the
// last reference goes. Status lines (connected, lost, reconnecting) go to `status`
// when it is set, on the service's reader thread.
BVGEO_API std::shared_ptr<LocationService> makeGpsdLocationService(
    std::string host = "localhost", std::string port = "2947", std::function<void(const std::string&)> status = {});

} // namespace bvgeo
