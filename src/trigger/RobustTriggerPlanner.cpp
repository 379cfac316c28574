#include "trigger/RobustTriggerPlanner.hpp"

#include "fence/FenceDistance.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace bvgeo {
namespace {

// Enough for the speed check, which compares against tens of metres per second: a
// plane near the two fixes, the haversine where they are far apart.
double roughMetres(double latitude1, double longitude1, double latitude2, double longitude2) {
    constexpr double kRadius = 6371008.8;
    constexpr double kDegree = std::numbers::pi / 180.0;
    const double dLatitude = (latitude2 - latitude1) * kDegree;
    double dLongitude = longitude2 - longitude1;
    if (dLongitude > 180.0 || dLongitude < -180.0) dLongitude = std::remainder(dLongitude, 360.0);
    dLongitude *= kDegree;
    if (std::abs(dLatitude) < 1e-3 && std::abs(dLongitude) < 1e-3) {
        const double east = dLongitude * std::cos((latitude1 + latitude2) / 2 * kDegree);
        return kRadius * std::sqrt(dLatitude * dLatitude + east * east);
    }
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

std::string waitingText(const char* change, const std::string& fenceId, const TriggerFilterOptions& options) {
    return std::string("Fence waits for confirmation: ") + change + " " + fenceId + " (" +
           std::to_string(options.confirmFixes) + " fixes over " + std::to_string(options.confirmSeconds) + " s, " +
           std::to_string(options.minimumDwellSeconds) + " s after its last change)";
}

} // namespace

RobustTriggerPlanner::Plan RobustTriggerPlanner::plan(const FenceList& insideFences, const FilteredFix& fix,
                                                      const std::vector<ActiveStay>& stays, std::int64_t now,
                                                      std::int64_t lingerTime, std::int64_t maxLingerTime,
                                                      const TriggerFilterOptions& options) {
    Plan out;
    const Location& position = fix.location;

    // Both trackers may hand over the same fix; it is one fix, counted once.
    if (lastUsed_ && lastUsed_->latitude == position.latitude && lastUsed_->longitude == position.longitude &&
        lastUsed_->time == now)
        return out;

    // A new fence list (another zone, a fresh download) makes the fences kept from
    // earlier fixes suspect: they are looked up again.
    if (fix.fences != fenceList_) {
        fenceList_ = fix.fences;
        ++generation_;
    }

    // Which stays the fix lies inside of, matched as the standard rule matches them:
    // each inside fence takes the first stay of its id not yet taken.
    std::vector<std::size_t>& stayOfInside = stayOfInside_;
    std::vector<char>& stayInside = stayInside_;
    stayOfInside.assign(insideFences.size(), stays.size());
    stayInside.assign(stays.size(), false);
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
        for (auto& [id, remembered] : states_) remembered.state.pendingFixes = 0;
        const double speed = fromLast ? *fromLast / static_cast<double>(std::max<std::int64_t>(sinceLast, 1)) : 0.0;
        // Only fences the standard rule would have changed were held by the rejection.
        const auto held = [&](const std::string& fenceId) {
            FenceFilterState& state = remember(fenceId, now).state;
            if (!(state.loggedHolds & kFixRejected))
                note(out, state, kFixRejected,
                     "Fence kept, fix rejected: " + fenceId + " (" + rejectionText(rejection, accuracy, speed, options) +
                         ")");
        };
        for (std::size_t i = 0; i < insideFences.size(); ++i)
            if (stayOfInside[i] == stays.size() && !listedBefore(i)) held(insideFences[i]->id);
        for (std::size_t a = 0; a < stays.size(); ++a)
            if (!stayInside[a]) held(stays[a].fenceId);
        return out;
    }
    speedRejectionsInRow_ = 0;
    lastUsed_ = UsedFix{position.latitude, position.longitude, now};

    const FenceMargins margins = marginsFor(accuracy, options);
    const double exitBuffer = std::max(options.exitBufferMetres, 0.0);

    for (std::size_t i = 0; i < insideFences.size(); ++i) {
        const auto& fence = insideFences[i];
        if (stayOfInside[i] != stays.size()) {
            // Inside a fence already active: it stays, and lingers as it would. What is
            // remembered of it (an exit that was waiting) lapses below, as this fix does
            // not speak for it.
            const ActiveStay& stay = stays[stayOfInside[i]];
            if (isLingerDue(now, stay.activatedAt, stay.lastTriggerAt, lingerTime, maxLingerTime))
                out.steps.push_back({TriggerType::Linger, i});
            continue;
        }
        if (listedBefore(i)) continue;
        const double distance = signedDistanceToRim(*fence, position.latitude, position.longitude);
        const FenceReading reading = readFence(false, distance, margins, exitBuffer);
        Remembered& remembered = remember(fence->id, now);
        FenceFilterState& state = remembered.state;
        // Safe to keep while its list is the current one: the list owns the fence.
        remembered.fence = fix.fences ? fence.get() : nullptr;
        remembered.generation = generation_;
        keptOrUndone(state, false);
        if (reading != FenceReading::Changes) {
            confirmChange(state, false, now, state.changedAt, options);
            if (!(state.loggedHolds & kHeldByAccuracy))
                note(out, state, kHeldByAccuracy,
                     "Fence not entered for the fix's accuracy: " + fence->id + " (" + metres(-distance) +
                         " inside, needs " + metres(margins.enterDepth) + ")");
            continue;
        }
        if (confirmChange(state, true, now, state.changedAt, options)) {
            out.steps.push_back({TriggerType::Enter, i});
            state.changedAt = now;
            state.entered = true;
            state.loggedHolds = 0;
        } else if (!(state.loggedHolds & kWaitingForConfirmation)) {
            note(out, state, kWaitingForConfirmation, waitingText("enter", fence->id, options));
        }
    }

    // Stays the fix lies outside of: how far outside decides between keeping and leaving.
    std::vector<TriggerStep>& exits = exits_;
    exits.clear();
    for (std::size_t a = 0; a < stays.size(); ++a) {
        if (stayInside[a]) continue;
        const ActiveStay& stay = stays[a];
        Remembered& remembered = remember(stay.fenceId, now);
        FenceFilterState& state = remembered.state;
        keptOrUndone(state, true);
        // The fence as the last fix inside it saw it; looked up afresh only when the
        // fence list has changed since (or nothing was remembered, after a restart).
        if (remembered.generation != generation_ || !remembered.fence) {
            remembered.fence = nullptr;
            if (fix.fences)
                for (const auto& near : fix.fences->fencesNear(position.latitude, position.longitude,
                                                               margins.exitDistance))
                    if (near->id == stay.fenceId) remembered.fence = near.get();
            remembered.generation = generation_;
        }
        const double distance = remembered.fence
                                    ? signedDistanceToRim(*remembered.fence, position.latitude, position.longitude)
                                    : std::numeric_limits<double>::infinity();
        const FenceReading reading = readFence(true, distance, margins, exitBuffer);
        if (reading == FenceReading::Changes) {
            if (confirmChange(state, true, now, std::max(stay.activatedAt, state.changedAt), options)) {
                exits.push_back({TriggerType::Exit, a});
                state.changedAt = now;
                state.entered = false;
                state.loggedHolds = 0;
            } else if (!(state.loggedHolds & kWaitingForConfirmation)) {
                note(out, state, kWaitingForConfirmation, waitingText("exit", stay.fenceId, options));
            }
            continue;
        }
        confirmChange(state, false, now, stay.activatedAt, options);
        const FilterHold hold = reading == FenceReading::HeldByBuffer ? kHeldByBuffer : kHeldByAccuracy;
        if (!(state.loggedHolds & hold))
            note(out, state, hold,
                 std::string(hold == kHeldByBuffer ? "Fence kept by the exit buffer: "
                                                   : "Fence kept for the fix's accuracy: ") +
                     stay.fenceId + " (" + metres(distance) + " beyond the rim, leaves from " +
                     metres(margins.exitDistance) + ")");
        // Still active, so it lingers as an active fence does.
        if (isLingerDue(now, stay.activatedAt, stay.lastTriggerAt, lingerTime, maxLingerTime)) {
            if (out.fences.empty()) out.fences = insideFences;
            out.steps.push_back({TriggerType::Linger, out.fences.size()});
            out.fences.push_back(std::shared_ptr<Fence>(fenceList_, remembered.fence)); // owned by the list
        }
    }
    out.steps.insert(out.steps.end(), exits.begin(), exits.end());

    lapse(now, options);
    return out;
}

bool RobustTriggerPlanner::awaitingConfirmation() const {
    return std::any_of(states_.begin(), states_.end(), [](const auto& entry) { return entry.second.state.waiting(); });
}

std::size_t RobustTriggerPlanner::rememberedBytes() const {
    // The map's nodes (key, value, hash and link) and its bucket array, and ids too
    // long to be held in the string itself.
    constexpr std::size_t kNode = sizeof(std::pair<const std::string, Remembered>) + 2 * sizeof(void*);
    std::size_t bytes = states_.bucket_count() * sizeof(void*) + states_.size() * kNode;
    for (const auto& [id, remembered] : states_)
        if (id.capacity() > std::string().capacity()) bytes += id.capacity() + 1;
    return bytes;
}

void RobustTriggerPlanner::forget() {
    states_.clear();
    lastUsed_.reset();
    speedRejectionsInRow_ = 0;
    fenceList_.reset();
}

RobustTriggerPlanner::Remembered& RobustTriggerPlanner::remember(const std::string& fenceId, std::int64_t now) {
    Remembered& remembered = states_[fenceId];
    remembered.state.seenAt = now;
    return remembered;
}

void RobustTriggerPlanner::keptOrUndone(FenceFilterState& state, bool active) {
    // A change the engine could not store leaves the fence as it was; its time then
    // holds back nothing.
    if (state.changedAt != FenceFilterState::kNever && state.entered != active) state.changedAt = FenceFilterState::kNever;
}

void RobustTriggerPlanner::note(Plan& plan, FenceFilterState& state, FilterHold hold, std::string text) {
    state.loggedHolds |= hold;
    plan.notes.push_back(std::move(text));
}

void RobustTriggerPlanner::lapse(std::int64_t now, const TriggerFilterOptions& options) {
    // A change waits only while every fix speaks for it: fences this fix said nothing
    // of (the device is inside an active one, outside an inactive one, or left their
    // zone) wait no more, and what was logged of them is forgotten once they have been
    // out of the picture for the dwell. What is left with nothing to remember goes.
    const std::int64_t dwell = std::max<std::int64_t>(options.minimumDwellSeconds, 0);
    for (auto it = states_.begin(); it != states_.end();) {
        FenceFilterState& state = it->second.state;
        if (state.seenAt != now) {
            state.pendingFixes = 0;
            if (now - state.seenAt >= dwell) state.loggedHolds = 0;
        }
        const bool dwelling = state.changedAt != FenceFilterState::kNever && now - dwell < state.changedAt;
        if (!state.waiting() && state.loggedHolds == 0 && !dwelling)
            it = states_.erase(it);
        else
            ++it;
    }
}

} // namespace bvgeo
