#include "location/LocationMonitoring.hpp"

#include "fence/FenceManager.hpp"
#include "logger/Logger.hpp"
#include "settings/TrackerSettings.hpp"
#include "trigger/TriggerManager.hpp"

namespace bvgeo {

void LocationMonitoring::triggerActiveFences(const Location& location, TriggerLocationEventType type,
                                             FenceProcessingCallback callback) {
    if (TrackerSettings::sharedInstance().extendedOptions().triggerFilter.robustTriggers)
        return triggerFilteredFences(location, type, std::move(callback));
    getInsideFences(location, [type, callback = std::move(callback)](FenceList inside) {
        auto fences = std::make_shared<const FenceList>(std::move(inside));
        callTriggerFences(*fences, type, [fences, callback](const ActiveFenceList& active) {
            if (callback) callback(*fences, active);
        });
    });
}

void LocationMonitoring::triggerFilteredFences(const Location& location, TriggerLocationEventType type,
                                               FenceProcessingCallback callback) {
    getFencesForLocation(location, [location, type, callback = std::move(callback)](std::shared_ptr<const FenceIndex> list) {
        auto fences = std::make_shared<const FenceList>(list->insideFences(location.latitude, location.longitude));
        FilteredFix fix{location, std::move(list)};
        callTriggerFences(
            *fences, type, [fences, callback](const ActiveFenceList& active) {
                if (callback) callback(*fences, active);
            },
            std::move(fix));
    });
}

void LocationMonitoring::getInsideFences(const Location& location, std::function<void(FenceList fences)> success) {
    getFencesForLocation(location, [location, success = std::move(success)](std::shared_ptr<const FenceIndex> list) {
        success(list->insideFences(location.latitude, location.longitude));
    });
}

void LocationMonitoring::getFencesForLocation(const Location& location,
                                              std::function<void(std::shared_ptr<const FenceIndex> fences)> success) {
    FenceManager::sharedInstance().getFenceList(location.latitude, location.longitude, std::move(success));
}

bool LocationMonitoring::isLocationInsideFence(const Location& location, const Fence& fence) {
    return bvgeo::isLocationInsideFence(location.latitude, location.longitude, fence);
}

void LocationMonitoring::callTriggerFences(FenceList fences, TriggerLocationEventType type,
                                           std::function<void(const ActiveFenceList& activeFences)> success,
                                           std::optional<FilteredFix> fix) {
    std::string text = "Inside Fences: ";
    for (const auto& fence : fences) text += fence->id + ", ";
    Logger::log(text, LogCategory::FENCE, "callTriggerFences(_:triggerLocationEventType:success:)", 62);
    TriggerManager::processInsideFences(std::move(fences), type, std::move(success), std::move(fix));
}

} // namespace bvgeo
