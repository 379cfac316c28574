// RandomUuidGenerator: version 4 UUIDs from a pseudo-random engine seeded once from
// the system's random device. The engine sits behind a mutex, so any thread may ask.
#pragma once

#include <bvgeo/platform/Uuid.hpp>

#include <mutex>
#include <random>

namespace bvgeo {

class RandomUuidGenerator final : public UuidGenerator {
public:
    RandomUuidGenerator();
    std::string newUuid() override;

private:
    std::mutex mutex_;
    std::mt19937_64 engine_;
};

} // namespace bvgeo
