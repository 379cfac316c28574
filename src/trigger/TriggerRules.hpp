// The trigger engine's decisions as pure functions of their inputs, the time included.
#pragma once

#include <bvgeo/ConfigOptions.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bvgeo {

// A linger is due while the stay is younger than `maxLingerTime` (strictly) and at
// least `lingerTime` has passed since the stay's last trigger.
bool isLingerDue(std::int64_t now, std::int64_t activatedAt, std::int64_t lastTriggerAt, std::int64_t lingerTime,
                 std::int64_t maxLingerTime);

struct ActiveStay {
    std::string fenceId;
    std::int64_t activatedAt = 0;
    std::int64_t lastTriggerAt = 0;
};

// One step of the engine's job, in the order the job performs them. For Enter and
// Linger `index` points into the inside fences; for Exit into the active stays.
struct TriggerStep {
    TriggerType type;
    std::size_t index;
    bool operator==(const TriggerStep&) const = default;
};

// Inside fences first, in their order (entering, lingering or neither), then the
// stays no longer inside, in their order. A fence id listed twice inside enters
// once per listing, as the stays are matched against the state at the start.
std::vector<TriggerStep> planTriggers(const std::vector<std::string>& insideFenceIds,
                                      const std::vector<ActiveStay>& activeStays, std::int64_t now,
                                      std::int64_t lingerTime, std::int64_t maxLingerTime);

} // namespace bvgeo
