// A small host application: it configures the tracker, starts it, walks the
// simulated location service through a few positions and prints the log rows the
// library stored. Run it with a data directory of your choice:
//   host_example [DATA_DIR]        (default ./bvgeo-data)
#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/SimulatedLocationService.hpp>
#include <bvgeo/platform/linux/LinuxPlatform.hpp>

#include "../src/models/Log.hpp"

#include <cstdio>
#include <memory>
#include <string>

int main(int argc, char** argv) {
    using namespace bvgeo;

    auto positions = std::make_shared<SimulatedLocationService>();
    LinuxPlatformOptions options;
    options.documentsDirectory = argc > 1 ? argv[1] : "bvgeo-data";
    options.locationService = positions;
    if (!installPlatform(makeLinuxPlatform(options))) {
        std::fprintf(stderr, "could not install the platform\n");
        return 1;
    }

    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.configure("demo", TriggerModes::Both, BVEnvironments::Development);
    tracker.start();

    // A short walk through Sittingbourne, Kent: every fix is ~60 m from the last.
    const double walk[][2] = {{51.34120, 0.73170}, {51.34170, 0.73200}, {51.34225, 0.73230},
                              {51.34280, 0.73265}, {51.34280, 0.73265}, {51.34335, 0.73300}};
    double t = 1'400'000'000;
    for (const auto& fix : walk) positions->push(fix[0], fix[1], t += 30);

    tracker.stop();

    auto logs = Log::getLogsFromDatabase();
    std::printf("%zu log rows in %s:\n", logs.size(), options.documentsDirectory.c_str());
    for (const auto& row : logs) {
        std::string category(rawValue(row->category));
        std::printf("%-8s %s\n", category.c_str(), row->message.c_str());
    }
    return 0;
}
