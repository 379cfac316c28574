// RobustTriggerPlanner: the trigger engine's decisions when robust triggers are on.
// For one fix it judges the fix (TriggerFilter's rules), reads every fence that
// matters (the fences that contain the fix, the active stays, the changes waiting
// for confirmation) from its distance to the rim, and plans the same steps the
// standard rule plans: enters and lingers, then exits.
//
// Owns the per-fence memory the rules need between fixes (a change waiting for
// confirmation, when the fence last changed, which holds were logged) and the last
// fix it used. That memory is kept only for fences with something to remember and
// lives in this process alone: the active-fence table keeps its standard meaning.
// Runs on the trigger engine's serial queue only (or one thread, in benchmarks).
#pragma once

#include "fence/FenceIndex.hpp"
#include "trigger/TriggerFilter.hpp"
#include "trigger/TriggerRules.hpp"

#include <bvgeo/TriggerFilterOptions.hpp>
#include <bvgeo/platform/LocationService.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace bvgeo {

// What the engine needs of a fix beyond the fences that contain it: the fix itself
// and the fence list it was judged against, to find the rims of active fences the
// fix lies just outside of.
struct FilteredFix {
    Location location;
    std::shared_ptr<const FenceIndex> fences;
};

class RobustTriggerPlanner {
public:
    struct Plan {
        // What Enter and Linger steps point into: the fences that contain the fix, in
        // their order, then the active fences the rules keep though the fix lies
        // outside them; empty when it would hold the inside fences alone. Exit steps
        // point into the stays given.
        FenceList fences;
        std::vector<TriggerStep> steps;
        // FENCE log lines: why a fence did not change, once per fence and reason.
        std::vector<std::string> notes;
    };

    Plan plan(const FenceList& insideFences, const FilteredFix& fix, const std::vector<ActiveStay>& stays,
              std::int64_t now, std::int64_t lingerTime, std::int64_t maxLingerTime,
              const TriggerFilterOptions& options);

    // Whether a change waits for more fixes: the location managers then deliver
    // without their distance filter, so that the confirming fixes come.
    bool awaitingConfirmation() const;

    // Fences with something remembered, and the bytes that memory takes.
    std::size_t rememberedFences() const { return states_.size(); }
    std::size_t rememberedBytes() const;

    void forget();

private:
    struct Remembered {
        FenceFilterState state;
        // The fence as the last fix near it saw it, owned by the fence list it came
        // from, and used only while that list (generation) is the current one.
        Fence* fence = nullptr;
        std::uint32_t generation = 0;
    };

    Remembered& remember(const std::string& fenceId, std::int64_t now);
    static void keptOrUndone(FenceFilterState& state, bool active);
    static void note(Plan& plan, FenceFilterState& state, FilterHold hold, std::string text);
    void lapse(std::int64_t now, const TriggerFilterOptions& options);

    // Only fences with something to remember: those near the device, a few at a time.
    std::unordered_map<std::string, Remembered> states_;

    struct UsedFix {
        double latitude = 0.0, longitude = 0.0;
        std::int64_t time = 0;
    };
    std::optional<UsedFix> lastUsed_;
    int speedRejectionsInRow_ = 0;
    // The fence list of the last fix, held so that a new one is told from it.
    std::shared_ptr<const FenceIndex> fenceList_;
    std::uint32_t generation_ = 0;
    // Scratch space of plan(), kept to spare an allocation per fix.
    std::vector<std::size_t> stayOfInside_;
    std::vector<char> stayInside_;
    std::vector<TriggerStep> exits_;
};

} // namespace bvgeo
