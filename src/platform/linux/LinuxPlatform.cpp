#include <bvgeo/platform/LinuxPlatform.hpp>

#include "platform/linux/FileSettingsStore.hpp"
#include "platform/linux/GpsdLocationService.hpp"
#include "platform/linux/LinuxReachability.hpp"
#include "platform/linux/LocalDateFormatter.hpp"
#include "platform/linux/PosixFileSystem.hpp"
#include "platform/linux/PowerSupplyDevice.hpp"
#include "platform/linux/RandomUuidGenerator.hpp"
#include "platform/linux/StaticApplication.hpp"
#include "platform/linux/StreamConsole.hpp"
#include "platform/linux/SystemClock.hpp"
#include "platform/linux/ThreadDispatchQueues.hpp"

#include <bvgeo/platform/RunLoopMainQueue.hpp>
#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>

#include <cstdlib>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace bvgeo {

namespace {

constexpr const char* kSettingsFileName = "bvgeo-settings.json";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// $HOME, else the account's home directory (services often run without HOME).
std::string homeDirectory() {
    if (auto home = environment("HOME"); !home.empty()) return home;
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir)
        return found->pw_dir;
    return ".";
}

} // namespace

std::string defaultDocumentsDirectory() {
    if (auto data = environment("XDG_DATA_HOME"); !data.empty()) return appendPathComponent(data, "bvgeo");
    return appendPathComponent(homeDirectory(), ".local/share/bvgeo");
}

std::shared_ptr<LocationService> makeGpsdLocationService(std::string host, std::string port,
                                                         std::function<void(const std::string&)> status) {
    auto service = std::make_shared<GpsdLocationService>(std::move(host), std::move(port), std::move(status));
    service->start();
    return service;
}

Platform makeLinuxPlatform(const LinuxPlatformOptions& options) {
    const std::string documents =
        options.documentsDirectory.empty() ? defaultDocumentsDirectory() : options.documentsDirectory;

    Platform p;
    p.clock = std::make_shared<SystemClock>();
    auto mainQueue = std::make_shared<RunLoopMainQueue>();
    if (options.mainQueueOnOwnThread) mainQueue->startThread();
    p.mainQueue = mainQueue;
    p.dispatchQueues = std::make_shared<ThreadDispatchQueues>();
    auto files = std::make_shared<PosixFileSystem>(documents);
    p.files = files;
    p.console = std::make_shared<StreamConsole>();
    p.settings = std::make_shared<FileSettingsStore>(appendPathComponent(documents, kSettingsFileName), files,
                                                     p.console);
    p.uuids = std::make_shared<RandomUuidGenerator>();
    p.dateFormatter = std::make_shared<LocalDateFormatter>();
    p.application = std::make_shared<StaticApplication>(options.applicationState, options.backgroundModes,
                                                        options.shortVersion, options.applicationName);
    // The tracker reads the battery on every position; once a second is plenty.
    p.device = std::make_shared<PowerSupplyDevice>(options.powerSupplyDirectory, std::chrono::seconds(1));
    p.locationService =
        options.locationService ? options.locationService : std::make_shared<SimulatedLocationService>();
    p.reachability = std::make_shared<LinuxReachability>();
    return p;
}

} // namespace bvgeo
