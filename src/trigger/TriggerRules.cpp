#include "trigger/TriggerRules.hpp"

namespace bvgeo {

bool isLingerDue(std::int64_t now, std::int64_t activatedAt, std::int64_t lastTriggerAt, std::int64_t lingerTime,
                 std::int64_t maxLingerTime) {
    return now - activatedAt < maxLingerTime && now - lastTriggerAt >= lingerTime;
}

std::vector<TriggerStep> planTriggers(const std::vector<std::string>& insideFenceIds,
                                      const std::vector<ActiveStay>& activeStays, std::int64_t now,
                                      std::int64_t lingerTime, std::int64_t maxLingerTime) {
    std::vector<TriggerStep> steps;
    std::vector<bool> stillInside(activeStays.size(), false);
    for (std::size_t i = 0; i < insideFenceIds.size(); ++i) {
        // The first stay of this fence not yet matched in this job.
        std::size_t match = activeStays.size();
        for (std::size_t a = 0; a < activeStays.size(); ++a) {
            if (!stillInside[a] && activeStays[a].fenceId == insideFenceIds[i]) {
                match = a;
                break;
            }
        }
        if (match == activeStays.size()) {
            steps.push_back({TriggerType::Enter, i});
            continue;
        }
        const auto& stay = activeStays[match];
        if (isLingerDue(now, stay.activatedAt, stay.lastTriggerAt, lingerTime, maxLingerTime))
            steps.push_back({TriggerType::Linger, i});
        stillInside[match] = true;
    }
    for (std::size_t a = 0; a < activeStays.size(); ++a)
        if (!stillInside[a]) steps.push_back({TriggerType::Exit, a});
    return steps;
}

} // namespace bvgeo
