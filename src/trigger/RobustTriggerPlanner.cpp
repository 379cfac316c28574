#include "trigger/RobustTriggerPlanner.hpp"

#include "fence/FenceDistance.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace bvgeo {
namespace {

// Enough for the speed check, which compares against tens of metres per second.
double roughMetres(double latitude1, double longitude1, double latitude2, double longitude2) {
    constexpr double kRadius = 6371008.8;
    constexpr double kDegree = std::numbers::pi / 180.0;
    const double dLatitude = (latitude2 - latitude1) * kDegree;
    const double dLongitude = std::remainder(longitude2 - longitude1, 360.0) * kDegree;
    const double h = std::sin(dLatitude / 2) * std::sin(dLatitude / 2) +
                     std::cos(latitude1 * kDegree) * std::cos(latitude2 * kDegree) * std::sin(dLongitude / 2) *
                         std::sin(dLongitude / 2);
    return 2.0 * kRadius * std::asin(std::sqrt(std::min(1.0, h)));
}

std::string metres(double value) { return std::to_string(std::llround(value)) + " m"; }

std::string rejectionText(FixRejection rejection, std::optional<double> accuracy, double speed,
                          const TriggerFilterOptions& options) {
    switch (rejection) {
    case FixRejection::Accuracy:
        return "accuracy " + (accuracy && std::isfinite(*accuracy) ? metres(*accuracy) : std::string("unbounded")) +
               ", limit " + metres(options.maxAccuracyMetres);
    case FixRejection::Speed:
        return "implies " + std::to_string(std::llround(speed)) + " m/s, limit " +
               std::to_string(std::llround(options.maxSpeed)) + " m/s";
    case FixRejection::TwoDimensional: return "2D fix";
    case FixRejection::NoFix: return "no fix";
    case FixRejection::None: break;
    }
    return "";
}

} // namespace

RobustTriggerPlanner::Plan RobustTriggerPlanner::plan(const FenceList& insideFences, const FilteredFix& fix,
                                                      const std::vector<ActiveStay>& stays, std::int64_t now,
                                                      std::int64_t lingerTime, std::int64_t maxLingerTime,
                                                      const TriggerFilterOptions& options) {
    Plan out;
    out.fences = insideFences;
    const Location& position = fix.location;

    // Which stays the fix lies inside of, matched as the standard rule matches them:
    // each inside fence takes the first stay of its id not yet taken.
    std::vector<std::size_t> stayOfInside(insideFences.size(), stays.size());
    std::vector<bool> stayInside(stays.size(), false);
    for (std::size_t i = 0; i < insideFences.size(); ++i) {
        for (std::size_t a = 0; a < stays.size(); ++a) {
            if (!stayInside[a] && stays[a].fenceId == insideFences[i]->id) {
                stayOfInside[i] = a;
                stayInside[a] = true;
                break;
            }
        }
    }
    // A fence listed twice is decided once, at its first listing.
    const auto listedBefore = [&](std::size_t i) {
        for (std::size_t j = 0; j < i; ++j)
            if (insideFences[j]->id == insideFences[i]->id) return true;
        return false;
    };

    // Both trackers may hand over the same fix; it is one fix, counted once.
    if (lastUsed_ && lastUsed_->latitude == position.latitude && lastUsed_->longitude == position.longitude &&
        lastUsed_->time == now)
        return out;

    const std::optional<double> accuracy = knownAccuracy(position.horizontalAccuracy, position.hdop, options);
    std::optional<double> fromLast;
    std::int64_t sinceLast = 0;
    if (lastUsed_) {
        fromLast = roughMetres(lastUsed_->latitude, lastUsed_->longitude, position.latitude, position.longitude);
        sinceLast = now - lastUsed_->time;
    }
    const FixRejection rejection =
        judgeFix(accuracy, position.fixMode, position.satellitesUsed, fromLast, sinceLast, speedRejectionsInRow_, options);

    if (rejection != FixRejection::None) {
        // The fix changes nothing, and breaks every run of fixes a change was waiting for.
        if (rejection == FixRejection::Speed) ++speedRejectionsInRow_;
        for (auto& remembered : states_) remembered.state.pendingFixes = 0;
        const double speed = fromLast ? *fromLast / static_cast<double>(std::max<std::int64_t>(sinceLast, 1)) : 0.0;
        const std::string why = rejectionText(rejection, accuracy, speed, options);
        // Only fences the standard rule would have changed were held by the rejection.
        const auto held = [&](const std::string& fenceId) {
            FenceFilterState& state = stateOf(fenceId);
            state.seenAt = now;
            note(out, state, kFixRejected, "Fence kept, fix rejected: " + fenceId + " (" + why + ")");
        };
        for (std::size_t i = 0; i < insideFences.size(); ++i)
            if (stayOfInside[i] == stays.size() && !listedBefore(i)) held(insideFences[i]->id);
        for (std::size_t a = 0; a < stays.size(); ++a)
            if (!stayInside[a]) held(stays[a].fenceId);
        dropIdle(now, options);
        return out;
    }
    speedRejectionsInRow_ = 0;
    lastUsed_ = UsedFix{position.latitude, position.longitude, now};

    const FenceMargins margins = marginsFor(accuracy, options);
    const double exitBuffer = std::max(options.exitBufferMetres, 0.0);
    std::vector<const std::string*> considered; // ids this fix spoke for

    for (std::size_t i = 0; i < insideFences.size(); ++i) {
        const Fence& fence = *insideFences[i];
        if (listedBefore(i)) continue;
        considered.push_back(&fence.id);
        if (stayOfInside[i] != stays.size()) {
            // Inside a fence already active: it stays, and lingers as it would.
            const ActiveStay& stay = stays[stayOfInside[i]];
            if (FenceFilterState* state = find(fence.id)) {
                keptOrUndone(*state, true);
                confirmChange(*state, false, now, stay.activatedAt, options);
            }
            if (isLingerDue(now, stay.activatedAt, stay.lastTriggerAt, lingerTime, maxLingerTime))
                out.steps.push_back({TriggerType::Linger, i});
            continue;
        }
        const double distance = signedDistanceToRim(fence, position.latitude, position.longitude);
        const FenceReading reading = readFence(false, distance, margins, exitBuffer);
        FenceFilterState& state = stateOf(fence.id);
        keptOrUndone(state, false);
        if (reading != FenceReading::Changes) {
            confirmChange(state, false, now, state.changedAt, options);
            note(out, state, kHeldByAccuracy,
                 "Fence not entered for the fix's accuracy: " + fence.id + " (" + metres(-distance) +
                     " inside, needs " + metres(margins.enterDepth) + ")");
            continue;
        }
        if (confirmChange(state, true, now, state.changedAt, options)) {
            out.steps.push_back({TriggerType::Enter, i});
            state.changedAt = now;
            state.entered = true;
            state.loggedHolds = 0;
        } else {
            note(out, state, kWaitingForConfirmation,
                 "Fence waits for confirmation: enter " + fence.id + " (" + std::to_string(options.confirmFixes) +
                     " fixes over " + std::to_string(options.confirmSeconds) + " s, " +
                     std::to_string(options.minimumDwellSeconds) + " s after its last change)");
        }
    }

    // Stays the fix lies outside of: how far outside decides between keeping and leaving.
    FenceList near;
    bool looked = false;
    std::vector<TriggerStep> exits;
    for (std::size_t a = 0; a < stays.size(); ++a) {
        if (stayInside[a]) continue;
        const ActiveStay& stay = stays[a];
        considered.push_back(&stay.fenceId);
        if (!looked && fix.fences) near = fix.fences->fencesNear(position.latitude, position.longitude, margins.exitDistance);
        looked = true;
        const auto found = std::find_if(near.begin(), near.end(), [&](const auto& f) { return f->id == stay.fenceId; });
        const double distance = found == near.end()
                                    ? std::numeric_limits<double>::infinity()
                                    : signedDistanceToRim(**found, position.latitude, position.longitude);
        const FenceReading reading = readFence(true, distance, margins, exitBuffer);
        FenceFilterState& state = stateOf(stay.fenceId);
        keptOrUndone(state, true);
        if (reading == FenceReading::Changes) {
            if (confirmChange(state, true, now, std::max(stay.activatedAt, state.changedAt), options)) {
                exits.push_back({TriggerType::Exit, a});
                state.changedAt = now;
                state.entered = false;
                state.loggedHolds = 0;
            } else {
                note(out, state, kWaitingForConfirmation,
                     "Fence waits for confirmation: exit " + stay.fenceId + " (" +
                         std::to_string(options.confirmFixes) + " fixes over " +
                         std::to_string(options.confirmSeconds) + " s, " +
                         std::to_string(options.minimumDwellSeconds) + " s after its last change)");
            }
            continue;
        }
        confirmChange(state, false, now, stay.activatedAt, options);
        if (reading == FenceReading::HeldByBuffer)
            note(out, state, kHeldByBuffer,
                 "Fence kept by the exit buffer: " + stay.fenceId + " (" + metres(distance) +
                     " beyond the rim, leaves from " + metres(margins.exitDistance) + ")");
        else
            note(out, state, kHeldByAccuracy,
                 "Fence kept for the fix's accuracy: " + stay.fenceId + " (" + metres(distance) +
                     " beyond the rim, leaves from " + metres(margins.exitDistance) + ")");
        // Still active, so it lingers as an active fence does.
        if (found != near.end() && isLingerDue(now, stay.activatedAt, stay.lastTriggerAt, lingerTime, maxLingerTime)) {
            out.steps.push_back({TriggerType::Linger, out.fences.size()});
            out.fences.push_back(*found);
        }
    }
    out.steps.insert(out.steps.end(), exits.begin(), exits.end());

    // A change waits only while every fix speaks for it: fences this fix said nothing
    // of (the device is outside them, or left their zone) wait no more, and what was
    // logged of them is forgotten once they have been out of the picture for the dwell.
    const std::int64_t dwell = std::max<std::int64_t>(options.minimumDwellSeconds, 0);
    for (auto& remembered : states_) {
        FenceFilterState& state = remembered.state;
        const bool spoken = std::any_of(considered.begin(), considered.end(),
                                        [&](const std::string* id) { return *id == remembered.fenceId; });
        if (spoken) {
            state.seenAt = now;
            continue;
        }
        state.pendingFixes = 0;
        if (now - state.seenAt >= dwell) state.loggedHolds = 0;
    }
    dropIdle(now, options);
    return out;
}

bool RobustTriggerPlanner::awaitingConfirmation() const {
    return std::any_of(states_.begin(), states_.end(), [](const Remembered& r) { return r.state.waiting(); });
}

std::size_t RobustTriggerPlanner::rememberedBytes() const {
    std::size_t bytes = states_.capacity() * sizeof(Remembered);
    for (const auto& remembered : states_)
        if (remembered.fenceId.capacity() > std::string().capacity()) bytes += remembered.fenceId.capacity() + 1;
    return bytes;
}

void RobustTriggerPlanner::forget() {
    states_.clear();
    lastUsed_.reset();
    speedRejectionsInRow_ = 0;
}

FenceFilterState* RobustTriggerPlanner::find(const std::string& fenceId) {
    for (auto& remembered : states_)
        if (remembered.fenceId == fenceId) return &remembered.state;
    return nullptr;
}

FenceFilterState& RobustTriggerPlanner::stateOf(const std::string& fenceId) {
    if (FenceFilterState* state = find(fenceId)) return *state;
    return states_.emplace_back(Remembered{fenceId, {}}).state;
}

void RobustTriggerPlanner::keptOrUndone(FenceFilterState& state, bool active) {
    // A change the engine could not store leaves the fence as it was; its time then
    // holds back nothing.
    if (state.changedAt != FenceFilterState::kNever && state.entered != active) state.changedAt = FenceFilterState::kNever;
}

void RobustTriggerPlanner::note(Plan& plan, FenceFilterState& state, FilterHold hold, const std::string& text) {
    if (state.loggedHolds & hold) return;
    state.loggedHolds |= hold;
    plan.notes.push_back(text);
}

void RobustTriggerPlanner::dropIdle(std::int64_t now, const TriggerFilterOptions& options) {
    const std::int64_t dwell = std::max<std::int64_t>(options.minimumDwellSeconds, 0);
    std::erase_if(states_, [&](const Remembered& r) {
        const bool dwelling = r.state.changedAt != FenceFilterState::kNever && now - dwell < r.state.changedAt;
        return !r.state.waiting() && r.state.loggedHolds == 0 && !dwelling;
    });
}

} // namespace bvgeo
