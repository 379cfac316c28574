#include "capi/Session.hpp"

#include "platform/SharedInstance.hpp"
#include "capi/FixTime.hpp"
#include "request/HTTPClient.hpp"
#include "tracker/Quiescence.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/platform/Platform.hpp>
#include <bvgeo/platform/LinuxPlatform.hpp>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace bvgeo::capi {


Session::Session(const SessionOptions& options, bvgeo_tracker* handle)
    : mode_(options.mode), locations_(std::make_shared<SimulatedLocationService>()),
      delegate_(std::make_shared<TriggerCallback>(handle)) {
    LinuxPlatformOptions platformOptions;
    platformOptions.documentsDirectory = options.documentsDirectory;
    platformOptions.mainQueueOnOwnThread = false; // the session serves it, so closing can join the thread
    platformOptions.locationService = locations_;
    Platform bundle = makeLinuxPlatform(platformOptions);
    if (options.console) {
        console_ = std::make_shared<CallbackConsole>(options.console, options.consoleUserData);
        bundle.console = console_;
    }

    if (mode_ == MainQueueMode::VirtualTime) {
        virtual_ = std::make_unique<VirtualTime>(options.startTime);
        bundle.clock = virtual_->clock();
        bundle.mainQueue = virtual_->mainQueue();
        bundle.dispatchQueues = virtual_->queues();
    } else {
        runLoop_ = std::make_shared<RunLoopMainQueue>();
        // Real threads, counted, so that closing can wait until they are idle.
        threadedQueues_ = std::make_shared<virtualtime::ManualDispatchQueues>(true);
        bundle.mainQueue = runLoop_;
        bundle.dispatchQueues = threadedQueues_;
    }
    if (!installPlatform(bundle)) throw std::runtime_error("the platform bundle is incomplete");
    if (mode_ == MainQueueMode::OwnThread) mainThread_ = std::thread([queue = runLoop_] { queue->run(); });
}

Session::~Session() {
    // shutDown() normally ran already; this only makes sure no thread is left.
    if (runLoop_) runLoop_->stop();
    if (mainThread_.joinable()) mainThread_.join();
}

void Session::setTriggerCallback(bvgeo_trigger_callback callback, void* userData) {
    delegate_->set(callback, userData);
    BVGeoTracker::sharedInstance().setTriggerDelegate(callback ? delegate_ : nullptr);
}

std::optional<int> Session::push(Location fix, SimulatedDelivery delivery, std::string& refused) {
    // In real time the fix runs the pipeline on the host's thread, which calls the
    // host's console: no lock of ours is held around it (the location service keeps
    // its own state consistent when fixes come from several threads at once).
    if (!virtual_) {
        if (fix.timestamp == 0) fix.timestamp = platform().clock->currentTime();
        return locations_->push(fix, delivery);
    }
    std::lock_guard lock(pumpMutex_);
    if (auto problem = virtualFixProblem(fix.timestamp, virtual_->now(), virtual_->started())) {
        refused = *problem;
        return std::nullopt;
    }
    if (fix.timestamp == 0) fix.timestamp = virtual_->now();
    virtual_->startAt(fix.timestamp);
    if (!virtual_->advanceTo(fix.timestamp)) return std::nullopt;
    const int received = locations_->push(fix, delivery);
    if (!virtual_->settle()) return std::nullopt;
    return received;
}

bool Session::runMainQueue() {
    {
        std::lock_guard lock(hostMutex_);
        if (hostRunning_) return false;
        hostRunning_ = true;
    }
    runLoop_->run();
    // Notified under the lock: a close waiting for this may destroy the session as
    // soon as it can take the lock again.
    std::lock_guard lock(hostMutex_);
    hostRunning_ = false;
    hostDone_.notify_all();
    return true;
}

void Session::stopMainQueue() { runLoop_->stop(); }

bool Session::hostIsRunning() const {
    std::lock_guard lock(hostMutex_);
    return hostRunning_;
}

std::optional<std::size_t> Session::runPending() {
    if (virtual_) {
        std::lock_guard lock(pumpMutex_);
        std::size_t ran = 0;
        if (!virtual_->settle(&ran)) return std::nullopt;
        return ran;
    }
    return static_cast<std::size_t>(runLoop_->runPending());
}

double Session::virtualNow() const { return virtual_->now(); }

bool Session::advanceTo(double time) {
    std::lock_guard lock(pumpMutex_);
    virtual_->startAt(time); // a host that moves the clock first starts it there
    return virtual_->advanceTo(time);
}

bool Session::settle() {
    std::lock_guard lock(pumpMutex_);
    return virtual_->settle();
}

std::optional<double> Session::nextTimer() const { return virtual_->nextTimer(); }

std::optional<std::string> Session::startConsole(
    const std::function<std::unique_ptr<ConsoleHandle>(std::string& error)>& start, bool& alreadyRunning) {
    std::lock_guard lock(debugConsoleMutex_);
    alreadyRunning = debugConsole_ && debugConsole_->running();
    if (alreadyRunning) return "a debug console already runs at " + debugConsole_->url();
    std::string error;
    auto console = start(error);
    if (!console) return error;
    debugConsole_ = std::move(console);
    return std::nullopt;
}

void Session::stopConsole() {
    std::unique_ptr<ConsoleHandle> console;
    {
        std::lock_guard lock(debugConsoleMutex_);
        console = std::move(debugConsole_);
    }
    if (console) console->stop();
}

std::string Session::consoleUrl() const {
    std::lock_guard lock(debugConsoleMutex_);
    return debugConsole_ ? debugConsole_->url() : std::string();
}

bool Session::flushMainQueue(double timeoutSeconds) {
    auto state = std::make_shared<std::pair<std::mutex, std::condition_variable>>();
    auto done = std::make_shared<bool>(false);
    runLoop_->async([state, done] {
        std::lock_guard lock(state->first);
        *done = true;
        state->second.notify_all();
    });
    std::unique_lock lock(state->first);
    return state->second.wait_for(lock, std::chrono::duration<double>(timeoutSeconds), [&] { return *done; });
}

bool Session::drainQueues(double timeoutSeconds) {
    if (virtual_) return virtual_->settle();
    threadedQueues_->runPending(); // the trigger engine's queue, idle
    if (mode_ == MainQueueMode::OwnThread || hostIsRunning()) return flushMainQueue(timeoutSeconds);
    // Host mode with nobody serving the main queue: the caller is the host, so what
    // is due runs here, as bvgeo_main_queue_run_pending would run it.
    runLoop_->runPending();
    return true;
}

bool Session::settleWithin(double timeoutSeconds) {
    std::unique_lock lock(pumpMutex_, std::defer_lock);
    if (virtual_) lock.lock(); // one pump at a time
    return settleLibrary(timeoutSeconds, [this](double left) { return drainQueues(left); });
}

void Session::stopMainQueueThread(double timeoutSeconds) {
    if (!runLoop_) return;
    runLoop_->stop();
    if (mainThread_.joinable()) mainThread_.join();
    if (mode_ == MainQueueMode::Host) {
        std::unique_lock lock(hostMutex_);
        hostDone_.wait(lock, [&] { return !hostRunning_; });
    }
    // The main queue no longer runs, so nothing starts anew; what is under way ends.
    HTTPClient::sharedInstance().waitUntilIdle(timeoutSeconds);
    threadedQueues_->runPending();
}

FlushResult Session::shutDown(double timeoutSeconds) {
    const auto start = std::chrono::steady_clock::now();
    BVGeoTracker::sharedInstance().stop();
    stopConsole();
    FlushResult result;
    {
        std::unique_lock lock(pumpMutex_, std::defer_lock);
        if (virtual_) lock.lock();
        result = flushLibrary(timeoutSeconds, [this](double left) { return drainQueues(left); });
    }
    const double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    stopMainQueueThread(std::max(0.0, timeoutSeconds - spent));
    return result;
}

void Session::releaseLibraryState() {
    // The trackers hold managers of the location service and the services hold the
    // queues: all of them go here, newest first, while nothing runs.
    resetAllSharedInstances();
    if (console_) console_->disarm();
}

} // namespace bvgeo::capi
