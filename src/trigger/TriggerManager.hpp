// TriggerManager: turns the fences that contain the device at one position into
// enter, linger and exit triggers, keeps the active stays (memory and table), stores
// and logs each trigger, hands it to the host's delegate on the main queue and/or
// posts it through the request queue, as the trigger mode says.
//
// Every decision runs as one job on the serial queue "ProcessInsideFences";
// mActiveFences is touched only there. processInsideFences may be called from any
// thread and only queues.
//
// Durable before announced: a job's trigger rows and stay changes are one durable
// unit, committed before any of its triggers goes to the delegate or the request
// queue; with durable delivery their reports are in the outbox before that. When
// any of it cannot be stored, none is announced and the stays are read back from
// the table, so the next position decides again (and announces once storage works).
// No lock of the library is held while a job calls out (the console, the outbox).
#pragma once

#include "datastore/DatabaseConnection.hpp"
#include "fence/FenceIndex.hpp"
#include "models/ActiveFence.hpp"
#include "request/URLRequest.hpp"
#include "trigger/RobustTriggerPlanner.hpp"

#include <bvgeo/BVTrigger.hpp>
#include <bvgeo/platform/DispatchQueue.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {

using ActiveFenceList = std::vector<std::shared_ptr<ActiveFence>>;

class TriggerManager {
public:
    using Success = std::function<void(const ActiveFenceList& activeFences)>;

    static constexpr std::string_view kQueueLabel = "ProcessInsideFences";

    static TriggerManager& sharedInstance();

    // Queues one job; `success` runs on the engine's queue with the stays after it.
    // With `fix` (robust triggers on) the job decides by the robust rules.
    static void processInsideFences(FenceList fences, TriggerLocationEventType type, Success success,
                                    std::optional<FilteredFix> fix = std::nullopt);

    // Jobs queued since the process started: a host waiting for the library to go
    // quiet compares two readings to learn whether new decisions were asked for.
    static std::uint64_t jobsQueued();
    // Runs `done` on the engine's queue after every job queued before the call.
    void whenIdle(std::function<void()> done);

    // The following run inside a job only.
    ActiveFenceList getActiveFences();
    bool addFenceToActiveFences(const std::shared_ptr<ActiveFence>& fence);
    bool updateFenceAtActiveFences(const ActiveFence& fence);
    bool removeFenceFromActive(const std::shared_ptr<ActiveFence>& fence);
    static bool checkIfIsLinger(const ActiveFence& fence);
    // Robust triggers: whether a change waits for more fixes to confirm it.
    bool awaitingConfirmation() const { return robust_.awaitingConfirmation(); }
    static void sendTrigger(const std::string& fenceId, const std::string& fenceName, TriggerType type,
                            TriggerLocationEventType locationEvent);
    static void sendLocalTrigger(const std::shared_ptr<BVTrigger>& trigger);
    // Hands a stored trigger to the delegate and/or the request queue, as the mode
    // says; `report` is the one built for it while its job ran, if any.
    static void announceTrigger(const std::shared_ptr<BVTrigger>& trigger,
                                std::optional<URLRequest> report = std::nullopt);
    static void sendRemoteTrigger(const std::shared_ptr<BVTrigger>& trigger);
    // The trigger's report with its idempotency key, written to the outbox when
    // durable delivery is on (`keptInOutbox` tells whether that worked); nothing
    // (and a log line) when the API URL is unusable.
    static std::optional<URLRequest> buildRemoteTrigger(const BVTrigger& trigger, bool* keptInOutbox = nullptr);

    TriggerManager(const TriggerManager&) = delete;
    TriggerManager& operator=(const TriggerManager&) = delete;

private:
    TriggerManager();
    void runJob(const FenceList& fences, TriggerLocationEventType type, const Success& success,
                const FilteredFix* fix = nullptr);
    RobustTriggerPlanner::Plan planRobustly(const FenceList& fences, const FilteredFix& fix,
                                            const std::vector<ActiveStay>& stays, std::int64_t now,
                                            const configOptions& config);

    // The triggers of the job in progress, announced once its rows are committed.
    // With durable delivery a report reaches the outbox before its trigger's commit,
    // so no committed trigger can be left without one by a crash in between.
    struct JobTriggers {
        std::vector<std::shared_ptr<BVTrigger>> triggers;
        std::vector<std::optional<URLRequest>> reports; // parallel to triggers
        DurableWrite writes; // the trigger rows and stay changes, in order
        bool stored;         // every report the job needed is in the outbox
    };

    std::shared_ptr<DispatchQueue> serialQueue_;
    std::optional<ActiveFenceList> mActiveFences;
    std::optional<JobTriggers> job_;
    bool unstoredReported_ = false; // one console line per run of failed jobs
    RobustTriggerPlanner robust_;   // robust triggers' memory between fixes
};

} // namespace bvgeo
