#include "trigger/TriggerFilter.hpp"

#include <algorithm>
#include <cmath>

namespace bvgeo {
namespace {

// A figure a source may leave out: positive and not NaN, or nothing.
bool said(double value) { return value > 0.0; }

// A tunable that ought to be a distance or a time: NaN and negatives count as 0.
double atLeastZero(double value) { return value > 0.0 ? value : 0.0; }

} // namespace

std::optional<double> knownAccuracy(double horizontalAccuracy, double hdop, const TriggerFilterOptions& options) {
    if (said(horizontalAccuracy)) return horizontalAccuracy;
    if (said(hdop)) return hdop * atLeastZero(options.hdopMetres);
    return std::nullopt;
}

FixRejection judgeFix(std::optional<double> accuracy, FixMode mode, int satellitesUsed,
                      std::optional<double> metresFromLastUsed, std::int64_t secondsSinceLastUsed,
                      int speedRejectionsInRow, const TriggerFilterOptions& options) {
    if (mode == FixMode::NoFix) return FixRejection::NoFix;
    // Fewer than four satellites cannot fix height: a 2D fix whatever the mode says.
    const bool twoDimensional = mode == FixMode::TwoD || (satellitesUsed >= 0 && satellitesUsed < 4);
    if (twoDimensional && !options.useTwoDimensionalFixes) return FixRejection::TwoDimensional;
    if (accuracy && !(*accuracy <= options.maxAccuracyMetres)) return FixRejection::Accuracy;
    if (metresFromLastUsed && speedRejectionsInRow + 1 < kSpeedRejectionsBeforeBelieved) {
        const auto seconds = static_cast<double>(std::max<std::int64_t>(secondsSinceLastUsed, 1));
        if (!(*metresFromLastUsed / seconds <= options.maxSpeed)) return FixRejection::Speed;
    }
    return FixRejection::None;
}

FenceMargins marginsFor(std::optional<double> accuracy, const TriggerFilterOptions& options) {
    const double counted = std::min(accuracy ? *accuracy : atLeastZero(options.assumedAccuracyMetres),
                                    atLeastZero(options.accuracyCapMetres));
    return {counted / 2.0, std::max(atLeastZero(options.exitBufferMetres), counted)};
}

FenceReading readFence(bool active, double rimDistance, const FenceMargins& margins, double exitBufferMetres) {
    if (active) {
        if (rimDistance < 0.0) return FenceReading::Stays; // inside: the standard rule keeps it too
        if (rimDistance >= margins.exitDistance) return FenceReading::Changes;
        return rimDistance < exitBufferMetres ? FenceReading::HeldByBuffer : FenceReading::HeldByAccuracy;
    }
    if (!(rimDistance < 0.0)) return FenceReading::Stays; // outside (or no distance at all)
    return rimDistance <= -margins.enterDepth ? FenceReading::Changes : FenceReading::HeldByAccuracy;
}

bool confirmChange(FenceFilterState& state, bool wantsChange, std::int64_t now, std::int64_t lastChange,
                   const TriggerFilterOptions& options) {
    if (!wantsChange) {
        state.pendingFixes = 0;
        return false;
    }
    if (state.pendingFixes == 0) state.pendingSince = now;
    if (state.pendingFixes < UINT16_MAX) ++state.pendingFixes;
    const int fixes = std::max(options.confirmFixes, 1);
    const std::int64_t seconds = std::max<std::int64_t>(options.confirmSeconds, 0);
    const std::int64_t dwell = std::max<std::int64_t>(options.minimumDwellSeconds, 0);
    // Written so that kNever (the fence never changed) cannot overflow.
    const bool dwelt = lastChange == FenceFilterState::kNever || now - dwell >= lastChange;
    if (state.pendingFixes < fixes || now - state.pendingSince < seconds || !dwelt) return false;
    state.pendingFixes = 0;
    return true;
}

} // namespace bvgeo
