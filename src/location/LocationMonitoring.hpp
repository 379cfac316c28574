// LocationMonitoring: one accepted position's way through fence processing: the
// fence list of its zone, the fences that contain it, and the trigger engine. Holds
// no state. Steps run on the thread that delivers the previous one: the caller's
// when the fences come from memory or the table, the HTTP transport thread after a
// download; the callback comes on the trigger engine's queue, or never when the
// fence list cannot be obtained.
#pragma once

#include "fence/FenceIndex.hpp"
#include "models/ActiveFence.hpp"
#include "trigger/RobustTriggerPlanner.hpp"

#include <bvgeo/ConfigOptions.hpp>
#include <bvgeo/platform/LocationService.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace bvgeo {

using ActiveFenceList = std::vector<std::shared_ptr<ActiveFence>>;
using FenceProcessingCallback = std::function<void(const FenceList& insideFences, const ActiveFenceList& activeFences)>;

class LocationMonitoring {
public:
    static void triggerActiveFences(const Location& location, TriggerLocationEventType type,
                                    FenceProcessingCallback callback);
    static void getInsideFences(const Location& location, std::function<void(FenceList fences)> success);
    static void getFencesForLocation(const Location& location,
                                     std::function<void(std::shared_ptr<const FenceIndex> fences)> success);
    static bool isLocationInsideFence(const Location& location, const Fence& fence);
    static void callTriggerFences(FenceList fences, TriggerLocationEventType type,
                                  std::function<void(const ActiveFenceList& activeFences)> success,
                                  std::optional<FilteredFix> fix = std::nullopt);

private:
    // Robust triggers: the same road, with the fix and its fence list going along
    // for the engine to judge.
    static void triggerFilteredFences(const Location& location, TriggerLocationEventType type,
                                      FenceProcessingCallback callback);
};

} // namespace bvgeo
