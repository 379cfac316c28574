#include "trigger/TriggerManager.hpp"

#include "datastore/DatabaseConnection.hpp"
#include "logger/Logger.hpp"
#include "models/Trigger.hpp"
#include "platform/SharedInstance.hpp"
#include "request/CurlTransport.hpp"
#include "request/HTTPClient.hpp"
#include "request/Outbox.hpp"
#include "request/RequestQueue.hpp"
#include "settings/TrackerSettings.hpp"
#include "trigger/TriggerRules.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <algorithm>
#include <atomic>

namespace bvgeo {

TriggerManager& TriggerManager::sharedInstance() {
    static SharedInstance<TriggerManager> slot;
    return slot.get([] { return std::unique_ptr<TriggerManager>(new TriggerManager()); });
}

namespace {
std::atomic<std::uint64_t> jobsQueuedSoFar{0};
} // namespace

TriggerManager::TriggerManager()
    : serialQueue_(platform().dispatchQueues->makeSerialQueue(std::string(kQueueLabel))) {}

std::uint64_t TriggerManager::jobsQueued() { return jobsQueuedSoFar.load(); }

void TriggerManager::whenIdle(std::function<void()> done) { serialQueue_->async(std::move(done)); }

void TriggerManager::processInsideFences(FenceList fences, TriggerLocationEventType type, Success success,
                                         std::optional<FilteredFix> fix) {
    auto& engine = sharedInstance();
    jobsQueuedSoFar.fetch_add(1);
    // The update that asked hands its commit on to the job, so a position and its
    // decisions reach the disk in one commit, not two (triggers still commit at once,
    // and take the update's rows with them). No group stays open across the hop:
    // any other write meanwhile commits the update's rows first.
    auto update = std::make_shared<PendingCommit>();
    engine.serialQueue_->async(
        [&engine, update = std::move(update), fences = std::move(fences), type, success = std::move(success),
         fix = std::move(fix)]() mutable {
            WriteGroup handedOn(std::move(*update));
            engine.runJob(fences, type, success, fix ? &*fix : nullptr);
        });
}

void TriggerManager::runJob(const FenceList& fences, TriggerLocationEventType type, const Success& success,
                            const FilteredFix* fix) {
    WriteGroup writes; // one commit for the log rows of this update; triggers go durably below
    ActiveFenceList snapshot = getActiveFences();
    auto config = TrackerSettings::sharedInstance().config();

    std::vector<std::string> insideIds;
    insideIds.reserve(fences.size());
    for (const auto& fence : fences) insideIds.push_back(fence->id);
    std::vector<ActiveStay> stays;
    stays.reserve(snapshot.size());
    for (const auto& active : snapshot) stays.push_back({active->fenceId, active->activatedAt, active->lastTriggerAt});

    std::int64_t now = platform().clock->now();
    // Robust triggers plan from the fix itself; their Enter and Linger steps point
    // into a list of their own (the inside fences, then active ones kept by a margin).
    std::optional<RobustTriggerPlanner::Plan> robust;
    if (fix) robust = planRobustly(fences, *fix, stays, now, config);
    const FenceList& decided = robust && !robust->fences.empty() ? robust->fences : fences;
    const auto steps =
        robust ? robust->steps : planTriggers(insideIds, stays, now, config.lingerTime, config.maxLingerTime);
    if (!steps.empty()) {
        job_ = JobTriggers{{}, {}, {}, true};
        for (const auto& step : steps) {
            bool stored = true;
            switch (step.type) {
            case TriggerType::Enter: {
                const Fence& fence = *decided[step.index];
                stored = addFenceToActiveFences(
                    std::make_shared<ActiveFence>(fence.id, platform().clock->now(), fence.name));
                sendTrigger(fence.id, fence.name, TriggerType::Enter, type);
                break;
            }
            case TriggerType::Linger: {
                const Fence& fence = *decided[step.index];
                sendTrigger(fence.id, fence.name, TriggerType::Linger, type);
                stored = updateFenceAtActiveFences(ActiveFence(fence.id, 0));
                break;
            }
            case TriggerType::Exit: {
                const auto& stay = snapshot[step.index];
                sendTrigger(stay->fenceId, stay->fenceName, TriggerType::Exit, type);
                stored = removeFenceFromActive(stay);
                break;
            }
            }
            if (!stored) job_->stored = false;
        }
        JobTriggers job = std::move(*job_);
        job_.reset();
        // The trigger rows and stay changes, and nothing of any other thread's, in one
        // commit made now.
        if (job.stored && job.writes.commit()) {
            unstoredReported_ = false;
            for (std::size_t i = 0; i < job.triggers.size(); ++i) announceTrigger(job.triggers[i], job.reports[i]);
        } else {
            // Nothing of the job is kept or told: memory goes back to what the table holds.
            mActiveFences.reset();
            for (const auto& report : job.reports)
                if (auto key = report ? report->value(Outbox::kKeyHeader) : std::nullopt)
                    Outbox::sharedInstance().remove(*key);
            if (!unstoredReported_)
                platform().console->warn("TriggerManager: " + std::to_string(job.triggers.size()) +
                                         " trigger(s) could not be stored and were not delivered; the next "
                                         "position decides again");
            unstoredReported_ = true;
        }
    }

    ActiveFenceList result = getActiveFences();
    std::string text = "Active Fences: ";
    for (std::size_t i = 0; i < result.size(); ++i) {
        if (i) text += ",";
        text += result[i]->fenceId;
    }
    Logger::log(text, LogCategory::FENCE, "processInsideFences(_:triggerLocationEventType:success:)", 54);
    if (success) success(result);
}

RobustTriggerPlanner::Plan TriggerManager::planRobustly(const FenceList& fences, const FilteredFix& fix,
                                                       const std::vector<ActiveStay>& stays, std::int64_t now,
                                                       const configOptions& config) {
    auto plan = robust_.plan(fences, fix, stays, now, config.lingerTime, config.maxLingerTime,
                             TrackerSettings::sharedInstance().extendedOptions().triggerFilter);
    for (const auto& note : plan.notes) Logger::log(note, LogCategory::FENCE, "TriggerFilter", 1);
    return plan;
}

ActiveFenceList TriggerManager::getActiveFences() {
    if (!mActiveFences || mActiveFences->empty()) mActiveFences = ActiveFence::getActiveFences();
    return *mActiveFences;
}

bool TriggerManager::addFenceToActiveFences(const std::shared_ptr<ActiveFence>& fence) {
    if (!mActiveFences) getActiveFences();
    mActiveFences->push_back(fence);
    if (job_) {
        job_->writes.add(ActiveFence::saveStatement(*fence));
        return true;
    }
    return ActiveFence::save(*fence);
}

bool TriggerManager::updateFenceAtActiveFences(const ActiveFence& fence) {
    if (!mActiveFences) getActiveFences();
    auto it = std::find_if(mActiveFences->begin(), mActiveFences->end(),
                           [&](const auto& active) { return active->fenceId == fence.fenceId; });
    if (it == mActiveFences->end()) return false;
    (*it)->lastTriggerAt = platform().clock->now();
    if (job_) {
        job_->writes.add(ActiveFence::saveStatement(**it));
        return true;
    }
    return ActiveFence::save(**it);
}

bool TriggerManager::removeFenceFromActive(const std::shared_ptr<ActiveFence>& fence) {
    if (!mActiveFences) getActiveFences();
    auto it = std::find(mActiveFences->begin(), mActiveFences->end(), fence);
    if (it != mActiveFences->end()) mActiveFences->erase(it);
    if (job_) {
        job_->writes.add(ActiveFence::removeStatement(fence->fenceId));
        return true;
    }
    return ActiveFence::remove(fence->fenceId);
}

bool TriggerManager::checkIfIsLinger(const ActiveFence& fence) {
    auto config = TrackerSettings::sharedInstance().config();
    return isLingerDue(platform().clock->now(), fence.activatedAt, fence.lastTriggerAt, config.lingerTime,
                       config.maxLingerTime);
}

void TriggerManager::sendTrigger(const std::string& fenceId, const std::string& fenceName, TriggerType type,
                                 TriggerLocationEventType locationEvent) {
    auto& engine = sharedInstance();
    auto& settings = TrackerSettings::sharedInstance();
    auto trigger = std::make_shared<BVTrigger>(settings.deviceId(), type, platform().clock->now(), fenceId,
                                               fenceName, locationEvent);
    // Called on its own (not from a job), the trigger is a durable unit by itself.
    DurableWrite own;
    (engine.job_ ? engine.job_->writes : own).add(Trigger::saveStatement(*trigger));
    Logger::log("New Trigger: " + std::string(rawValue(type)) + " - fenceName: " + fenceName + " fenceId: " + fenceId,
                LogCategory::TRIGGER, "sendTrigger(_:fenceName:type:triggerLocationEventType:)", 131);
    if (engine.job_) {
        engine.job_->triggers.push_back(trigger);
        std::optional<URLRequest> report;
        if (settings.triggerMode() != TriggerMode::LOCAL_ONLY && settings.extendedOptions().durableDelivery) {
            bool kept = false;
            report = buildRemoteTrigger(*trigger, &kept);
            // A report that is not in the outbox could be lost with the process: its
            // trigger is not kept either, and the next position decides again.
            if (report && !kept) engine.job_->stored = false;
        }
        engine.job_->reports.push_back(std::move(report));
        return;
    }
    if (own.commit()) announceTrigger(trigger);
}

void TriggerManager::announceTrigger(const std::shared_ptr<BVTrigger>& trigger, std::optional<URLRequest> report) {
    auto& settings = TrackerSettings::sharedInstance();
    auto mode = settings.triggerMode();
    if (mode != TriggerMode::REMOTE_ONLY && settings.delegate())
        platform().mainQueue->async([trigger] { sendLocalTrigger(trigger); });
    if (mode == TriggerMode::LOCAL_ONLY) return;
    if (report)
        RequestQueue::sharedInstance().addRequestToQueue(*report);
    else
        sendRemoteTrigger(trigger);
}

void TriggerManager::sendLocalTrigger(const std::shared_ptr<BVTrigger>& trigger) {
    if (auto delegate = TrackerSettings::sharedInstance().delegate()) (*delegate)(trigger);
}

void TriggerManager::sendRemoteTrigger(const std::shared_ptr<BVTrigger>& trigger) {
    if (auto report = buildRemoteTrigger(*trigger)) RequestQueue::sharedInstance().addRequestToQueue(*report);
}

std::optional<URLRequest> TriggerManager::buildRemoteTrigger(const BVTrigger& trigger, bool* keptInOutbox) {
    std::string url = TrackerSettings::sharedInstance().apiUrl() + "trigger?sdk_ver=" + std::string(SDK_VERSION);
    if (!isValidHTTPURL(url)) {
        Logger::log("Trigger not sent: invalid URL: " + url, LogCategory::REQUESTS, "sendRemoteTrigger(_:)", 171);
        return std::nullopt;
    }
    auto parameters = nlohmann::json::parse(trigger.toParameters().dump());
    // One key per report, kept by every retry and every resend after a relaunch, so
    // that the server can store each report once however often it arrives.
    const std::string key = platform().uuids->newUuid();
    auto request = HTTPClient::sharedInstance().request(url, HTTPMethod::POST, parameters,
                                                        nlohmann::json{{std::string(Outbox::kKeyHeader), key}});
    if (TrackerSettings::sharedInstance().extendedOptions().durableDelivery) {
        // Leftovers of an earlier process go first, then this report is made durable
        // before anything can send it.
        RequestQueue::sharedInstance().restoreOutbox();
        const bool kept = Outbox::sharedInstance().add(
            {key, request, trigger.fenceId, std::string(rawValue(trigger.event)), trigger.timestamp});
        if (keptInOutbox) *keptInOutbox = kept;
    }
    return request;
}

} // namespace bvgeo
