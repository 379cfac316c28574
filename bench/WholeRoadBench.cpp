// The whole road for one accepted position, with the zone's fence list in memory
// and every log line going to the database: pipeline, fence list, containment,
// trigger engine (LOCAL_ONLY without a delegate, so nothing leaves the process).
// Positions follow a walk of 10 m steps through the zone, as a moving device's do.
// Arguments: fences in the zone, and the "Fences from ..." listing limit (0: none).
#include "fence/FenceManager.hpp"
#include "location/LocationTrackerSignificantChanges.hpp"
#include "models/Fence.hpp"
#include "models/FenceFetch.hpp"
#include "platform/SharedInstance.hpp"
#include "zone/ZoneGrid.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/testing/TestPlatform.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using namespace bvgeo;

constexpr double kZoneLat = 51.2, kZoneLon = 0.6, kZoneSize = 0.2; // the cell [51.2, 51.4) x [0.6, 0.8)

void seedZone(int fenceCount) {
    std::mt19937 random(42);
    // Shop-sized fences: at 100,000 in the zone about 15 surround any point.
    std::uniform_real_distribution<double> offset(0.0, kZoneSize), radius(20.0, 200.0);
    FenceList fences;
    fences.reserve(fenceCount);
    for (int i = 0; i < fenceCount; ++i) {
        const std::string number = std::to_string(i);
        std::string id = "f", name = "Fence ";
        id += number;
        name += number;
        fences.push_back(std::make_shared<Fence>(id, name, kZoneLat + offset(random), kZoneLon + offset(random),
                                                 radius(random), std::vector<std::string>{}, true));
    }
    Fence::saveFenceList(fences);
}

void BM_WholeRoadPerPosition(benchmark::State& state) {
    testing::TestPlatform sim;
    sim.installFresh();
    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.configure("bench", TriggerModes::LocalOnly, BVEnvironments::Production);
    tracker.setParameters(kLocationAccuracyNearestTenMeters, kDistanceFilterNone);
    ExtendedOptions extended;
    extended.fenceListingLimit = static_cast<std::size_t>(state.range(1));
    tracker.setExtendedOptions(extended);
    seedZone(static_cast<int>(state.range(0)));
    FenceFetch::setLastZoneFile(getZoneName(kZoneLat + 0.1, kZoneLon + 0.1, kZoneSize));
    FenceFetch::setLastCacheTime(sim.clock->now());
    tracker.start();
    // One tracker, so that every push is exactly one accepted position.
    LocationTrackerSignificantChanges::sharedInstance().stop();

    std::mt19937 random(7);
    std::uniform_real_distribution<double> turn(-0.3, 0.3);
    double heading = 0.7, latitude = kZoneLat + 0.1, longitude = kZoneLon + 0.1;
    const double step = 10.0 / 111'000.0; // degrees of latitude in 10 m
    auto walk = [&] {
        heading += turn(random);
        latitude += step * std::cos(heading);
        longitude += step * std::sin(heading) / std::cos(latitude * M_PI / 180.0);
        // Stay inside the zone: turn back at its edges.
        if (latitude < kZoneLat + 0.001 || latitude > kZoneLat + kZoneSize - 0.001 || longitude < kZoneLon + 0.001 ||
            longitude > kZoneLon + kZoneSize - 0.001) {
            heading += M_PI;
            latitude = std::clamp(latitude, kZoneLat + 0.001, kZoneLat + kZoneSize - 0.001);
            longitude = std::clamp(longitude, kZoneLon + 0.001, kZoneLon + kZoneSize - 0.001);
        }
    };
    double time = sim.clock->currentTime();
    // The first position reads the table; every later one is answered from memory.
    sim.deliver(kZoneLat + 0.1, kZoneLon + 0.1, time += 1);
    for (auto _ : state) {
        sim.clock->set(time += 1);
        walk();
        sim.locationService->push(latitude, longitude, time);
        sim.runUntilIdle();
    }
    state.SetItemsProcessed(state.iterations());
    tracker.stop();
    sim.runUntilIdle();
    resetAllSharedInstances();
}
// Wall time: the writes' waits on the disk are part of what a position costs.
BENCHMARK(BM_WholeRoadPerPosition)
    ->Args({1000, 0})
    ->Args({100000, 0})
    ->Args({100000, 100})
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

} // namespace
