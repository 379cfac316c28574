#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>

#include <algorithm>
#include <condition_variable>
#include <thread>

namespace bvgeo {

// One manager's delivery decision for the fix being pushed.
struct SimulatedLocationService::Entry {
    LocationManagerDelegate* delegate = nullptr;
    bool standard = false;
    bool significant = false;
};

// Every member is guarded by the service's mutex. A manager being destroyed waits
// for deliveries to it that run on other threads, so a delegate is never called for
// a manager that is gone; it does not wait for a delivery on its own thread, which
// is how a delegate may destroy its own manager.
class SimulatedLocationService::Manager final : public LocationManager {
public:
    Manager(SimulatedLocationService& service, std::uint64_t id, bool supportsBackground)
        : service_(service), id_(id), supportsBackground_(supportsBackground) {}

    ~Manager() override {
        std::unique_lock lock(service_.mutex_);
        waitForOtherDeliveries(lock);
        auto& list = service_.managers_;
        list.erase(std::remove(list.begin(), list.end(), this), list.end());
    }

    // Once a change of delegate returns, the previous one is no longer being called on
    // another thread, so its owner may destroy it. Setting the same delegate again (as
    // trackers do whenever they retune) does not wait.
    void setDelegate(LocationManagerDelegate* delegate) override {
        std::unique_lock lock(service_.mutex_);
        if (delegate != delegate_) waitForOtherDeliveries(lock);
        delegate_ = delegate;
        state_.hasDelegate = delegate != nullptr;
    }
    void setActivityType(ActivityType type) override { update([&] { state_.activityType = type; }); }
    void setDesiredAccuracy(double metres) override { update([&] { state_.desiredAccuracy = metres; }); }
    void setDistanceFilter(double metres) override { update([&] { state_.distanceFilter = metres; }); }
    void setPausesLocationUpdatesAutomatically(bool pauses) override {
        update([&] { state_.pausesLocationUpdatesAutomatically = pauses; });
    }
    bool supportsBackgroundLocationUpdates() const override { return supportsBackground_; }
    void setAllowsBackgroundLocationUpdates(bool allows) override {
        update([&] { state_.allowsBackgroundLocationUpdates = allows; });
    }
    void requestAlwaysAuthorization() override { update([&] { ++state_.authorizationRequests; }); }
    void allowDeferredLocationUpdates(double distance, double timeout) override {
        update([&] {
            ++state_.deferredRequests;
            state_.deferredDistance = distance;
            state_.deferredTimeout = timeout;
        });
    }
    void startUpdatingLocation() override { update([&] { state_.updatingLocation = true; }); }
    void stopUpdatingLocation() override { update([&] { state_.updatingLocation = false; }); }
    void startMonitoringSignificantLocationChanges() override {
        update([&] { state_.monitoringSignificantChanges = true; });
    }
    void stopMonitoringSignificantLocationChanges() override {
        update([&] { state_.monitoringSignificantChanges = false; });
    }

    // Caller holds the service mutex. Decides whether `fix` goes to this manager and,
    // if so, records it as delivered.
    Entry accept(const Location& fix, SimulatedDelivery delivery) {
        Entry entry;
        if (!delegate_) return entry;
        if (state_.updatingLocation && delivery != SimulatedDelivery::SignificantChange) {
            const double filter = state_.distanceFilter.value_or(kDistanceFilterNone);
            entry.standard = !hadStandardDelivery_ || filter <= 0.0 || !lastDelivered_ ||
                             fix.distanceFrom(*lastDelivered_) >= filter;
        }
        if (state_.monitoringSignificantChanges && delivery == SimulatedDelivery::SignificantChange) {
            entry.significant = true;
        } else if (state_.monitoringSignificantChanges && delivery == SimulatedDelivery::Automatic) {
            entry.significant = !lastSignificant_ ||
                                fix.distanceFrom(*lastSignificant_) >= SimulatedLocationService::kSignificantChangeDistance;
        }
        if (!entry.standard && !entry.significant) return entry;
        if (entry.standard) hadStandardDelivery_ = true;
        if (entry.significant) lastSignificant_ = fix;
        lastDelivered_ = fix;
        ++state_.batchesDelivered;
        entry.delegate = delegate_;
        return entry;
    }

    // Caller holds the service mutex.
    void beginDelivery() { deliveringOn_.push_back(std::this_thread::get_id()); }
    void endDelivery() {
        auto it = std::find(deliveringOn_.begin(), deliveringOn_.end(), std::this_thread::get_id());
        if (it != deliveringOn_.end()) deliveringOn_.erase(it);
        deliveryDone_.notify_all();
    }

    std::uint64_t id() const { return id_; }
    const SimulatedManagerState& state() const { return state_; }

private:
    // Deliveries on this thread are the caller's own; waiting for them would never end.
    void waitForOtherDeliveries(std::unique_lock<std::mutex>& lock) {
        const auto self = std::this_thread::get_id();
        deliveryDone_.wait(lock, [&] {
            return std::all_of(deliveringOn_.begin(), deliveringOn_.end(), [&](auto id) { return id == self; });
        });
    }

    template <class Change>
    void update(Change&& change) {
        std::lock_guard lock(service_.mutex_);
        change();
    }

    SimulatedLocationService& service_;
    const std::uint64_t id_;
    const bool supportsBackground_;
    LocationManagerDelegate* delegate_ = nullptr;
    SimulatedManagerState state_;
    bool hadStandardDelivery_ = false;
    std::optional<Location> lastDelivered_;
    std::optional<Location> lastSignificant_;
    std::vector<std::thread::id> deliveringOn_;
    std::condition_variable deliveryDone_;
};

namespace {
std::atomic<std::uint64_t> nextManagerId{1};
} // namespace

SimulatedLocationService::SimulatedLocationService() = default;

// Managers must not outlive the service; there is nothing left to tear down here.
SimulatedLocationService::~SimulatedLocationService() = default;

std::unique_ptr<LocationManager> SimulatedLocationService::makeLocationManager() {
    std::lock_guard lock(mutex_);
    auto manager = std::make_unique<Manager>(*this, nextManagerId.fetch_add(1), supportsBackground_);
    managers_.push_back(manager.get());
    return manager;
}

AuthorizationStatus SimulatedLocationService::authorizationStatus() const {
    std::lock_guard lock(mutex_);
    return status_;
}

void SimulatedLocationService::setAuthorizationStatus(AuthorizationStatus status) {
    std::lock_guard lock(mutex_);
    status_ = status;
}

void SimulatedLocationService::setSupportsBackgroundUpdates(bool supported) {
    std::lock_guard lock(mutex_);
    supportsBackground_ = supported;
}

int SimulatedLocationService::push(const Location& fix, SimulatedDelivery delivery) {
    // Ids rather than pointers: a delegate may destroy managers, its own included,
    // and a new manager could reuse a freed address.
    std::vector<std::uint64_t> ids;
    {
        std::lock_guard lock(mutex_);
        ids.reserve(managers_.size());
        for (auto* m : managers_) ids.push_back(m->id());
    }
    auto find = [this](std::uint64_t id) -> Manager* {
        for (auto* m : managers_)
            if (m->id() == id) return m;
        return nullptr;
    };

    int received = 0;
    const std::vector<Location> batch{fix};
    for (auto id : ids) {
        Manager* manager = nullptr;
        Entry entry;
        {
            // Decided one manager at a time, just before its delivery, so what an
            // earlier delegate did to this manager (stopped it, say) already counts.
            std::lock_guard lock(mutex_);
            manager = find(id);
            if (!manager) continue;
            entry = manager->accept(fix, delivery);
            if (!entry.delegate) continue;
            manager->beginDelivery();
        }
        ++received;
        try {
            entry.delegate->locationManagerDidUpdateLocations(*manager, batch);
        } catch (...) {
            // A throwing delegate must not keep the other managers from their fix.
        }
        std::lock_guard lock(mutex_);
        if (Manager* still = find(id)) still->endDelivery();
    }
    return received;
}

std::vector<SimulatedManagerState> SimulatedLocationService::managerStates() const {
    std::lock_guard lock(mutex_);
    std::vector<SimulatedManagerState> states;
    states.reserve(managers_.size());
    for (const auto* m : managers_) states.push_back(m->state());
    return states;
}

} // namespace bvgeo
