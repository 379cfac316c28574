// The robust trigger rules as pure functions of their inputs, the time included,
// and the small record they keep per fence. They decide, for one fix and one
// fence, whether the fix may be used at all, which side of the fence it speaks
// for, and whether a change waiting for confirmation is now confirmed. The state
// they update lives with the trigger engine (RobustTriggerPlanner, on its serial
// queue); these functions hold none.
#pragma once

#include <bvgeo/TriggerFilterOptions.hpp>
#include <bvgeo/platform/LocationService.hpp>

#include <cstdint>
#include <limits>
#include <optional>

namespace bvgeo {

// The accuracy, in metres, the rules count for a fix: the source's own figure, else
// HDOP x hdopMetres; empty when the source said neither (zero, negative and NaN
// say nothing). An infinite figure stays infinite: infinitely bad, not unknown.
std::optional<double> knownAccuracy(double horizontalAccuracy, double hdop, const TriggerFilterOptions& options);

// Why a fix changes no fence.
enum class FixRejection : std::uint8_t { None, Accuracy, Speed, TwoDimensional, NoFix };

// After this many fixes in a row that imply too high a speed, the last is believed:
// the device did travel that fast, or is somewhere new.
inline constexpr int kSpeedRejectionsBeforeBelieved = 3;

// Whether the rules may use a fix. `accuracy` as knownAccuracy gives it;
// `metresFromLastUsed` and `secondsSinceLastUsed` measure from the last fix the
// rules used (empty `metresFromLastUsed`: there is none); `speedRejectionsInRow`
// counts the fixes rejected for speed just before this one. Same-second fixes count
// as one second apart.
FixRejection judgeFix(std::optional<double> accuracy, FixMode mode, int satellitesUsed,
                      std::optional<double> metresFromLastUsed, std::int64_t secondsSinceLastUsed,
                      int speedRejectionsInRow, const TriggerFilterOptions& options);

// How far inside a fix must lie to enter, and how far beyond the rim to leave.
struct FenceMargins {
    double enterDepth = 0.0;   // metres inside the rim
    double exitDistance = 0.0; // metres beyond the rim
    bool operator==(const FenceMargins&) const = default;
};

// Entering needs half the (capped) accuracy inside, so most of the error circle is
// in the fence; leaving needs the exit buffer and the whole (capped) error circle
// beyond the rim. Unknown accuracy counts as assumedAccuracyMetres.
FenceMargins marginsFor(std::optional<double> accuracy, const TriggerFilterOptions& options);

// What one usable fix says about a fence: it stays as it is, it asks for the
// change, or it would have changed the fence under the standard rule but a margin
// holds it (the exit buffer, or the fix's accuracy).
enum class FenceReading : std::uint8_t { Stays, Changes, HeldByBuffer, HeldByAccuracy };

FenceReading readFence(bool active, double rimDistance, const FenceMargins& margins, double exitBufferMetres);

// Reasons the robust rules held a fence, as bits: each is logged once per fence
// while the fence keeps its state.
enum FilterHold : std::uint8_t {
    kHeldByBuffer = 1,
    kHeldByAccuracy = 2,
    kWaitingForConfirmation = 4,
    kFixRejected = 8,
};

// What the rules remember of one fence between fixes: a change waiting for
// confirmation, when the fence last changed, and which holds were logged.
struct FenceFilterState {
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::min();

    std::int64_t pendingSince = 0;    // when the first fix on the new side came
    std::int64_t changedAt = kNever;  // the last enter or exit the rules made
    std::int64_t seenAt = 0;          // the last fix that spoke for this fence
    std::uint16_t pendingFixes = 0;   // fixes in a row on the new side; 0: nothing waits
    std::uint8_t loggedHolds = 0;     // FilterHold bits written to the log in this state
    bool entered = false;             // whether that change was an enter

    bool waiting() const { return pendingFixes > 0; }
};

// Counts one usable fix towards a fence's change. `wantsChange`: the fix lies on
// the new side (FenceReading::Changes). True when this fix confirms the change:
// confirmFixes fixes in a row, the first at least confirmSeconds ago, and at least
// minimumDwellSeconds since `lastChange` (the stay's start for an exit). A fix on
// the old side clears what was waiting.
bool confirmChange(FenceFilterState& state, bool wantsChange, std::int64_t now, std::int64_t lastChange,
                   const TriggerFilterOptions& options);

} // namespace bvgeo
