// The containment benchmarks' synthetic zone: centres uniform in a 0.2-degree zone
// near Paris, radii uniform from 20 m up to a maximum. Seeded, so every run and
// every benchmark measures the same fences and positions.
#pragma once

#include "models/Fence.hpp"

#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace bvgeo::bench {

constexpr double kZoneSouth = 48.75;
constexpr double kZoneWest = 2.25;
constexpr double kZoneDegrees = 0.2;

struct Position {
    double latitude, longitude;
};

inline Position randomPosition(std::mt19937_64& random) {
    std::uniform_real_distribution<double> offset(0.0, kZoneDegrees);
    const double latitude = kZoneSouth + offset(random);
    return {latitude, kZoneWest + offset(random)};
}

inline std::vector<Fence> syntheticFences(std::size_t count, double maxRadius) {
    std::mt19937_64 random(20240611);
    std::uniform_real_distribution<double> radius(20.0, maxRadius);
    std::vector<Fence> fences;
    fences.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const Position centre = randomPosition(random);
        fences.emplace_back(std::to_string(i), "fence", centre.latitude, centre.longitude, radius(random),
                            std::vector<std::string>{"content"}, true);
    }
    return fences;
}

} // namespace bvgeo::bench
