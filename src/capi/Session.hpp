// Session: what one bvgeo_open set up, and how bvgeo_close takes it down. It owns
// the platform pieces a C host steers (the main queue in the chosen mode, the
// simulated location service the host feeds, virtual time), the facade's delegate
// that forwards to the host's callback, and the debug console.
//
// Made and shut down by the C API under its open/close lock. Everything else may
// be called from any thread; in virtual time push() and the other operations that
// move time are taken one at a time (the callbacks they run on the caller's thread
// must not call them: the C API refuses), and the main-queue operations follow the
// mode's rules (bvgeo.h). No other lock of the session is held while host code runs.
#pragma once

#include "capi/CallbackConsole.hpp"
#include "capi/TriggerCallback.hpp"
#include "capi/VirtualTime.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/bvgeo.h>
#include <bvgeo/platform/RunLoopMainQueue.hpp>
#include <bvgeo/platform/virtualtime/ManualDispatchQueues.hpp>
#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace bvgeo::capi {

enum class MainQueueMode : int { OwnThread = 0, Host = 1, VirtualTime = 2 };

struct SessionOptions {
    std::string documentsDirectory; // non-empty, existing and writable
    MainQueueMode mode = MainQueueMode::OwnThread;
    double startTime = 0.0; // virtual time: the clock's start; 0: the first fix's time
    bvgeo_console_callback console = nullptr;
    void* consoleUserData = nullptr;
};

// What a session needs of the debug console it runs beside.
class ConsoleHandle {
public:
    virtual ~ConsoleHandle() = default;
    virtual bool running() const = 0;
    virtual std::string url() const = 0;
    virtual void stop() = 0;
};

class Session {
public:
    // Installs the platform; the library is used from here on.
    Session(const SessionOptions& options, bvgeo_tracker* handle);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    MainQueueMode mode() const { return mode_; }

    // Waits until every fix pushed so far is decided and its reports are queued
    // (virtual time: runs it all on the calling thread). False at the deadline.
    bool settleWithin(double timeoutSeconds);
    // Stops tracking and the console, lets work in progress finish and the reports
    // still owed go out, within `timeoutSeconds`, and stops the main queue: after it
    // no library work runs and no callback comes. Tells what is still owed.
    FlushResult shutDown(double timeoutSeconds);
    // Lets go of every shared instance of the library (database, HTTP, services)
    // and of the host's console callback. After shutDown only.
    void releaseLibraryState();

    void setTriggerCallback(bvgeo_trigger_callback callback, void* userData);

    // One fix from the host's source (timestamp 0: the clock's now); in virtual time
    // it first moves the clock (the first fix starts it) and afterwards runs what
    // the fix started. Empty when virtual time got stuck, or with `refused` set when
    // the fix is older than the virtual clock.
    std::optional<int> push(Location fix, SimulatedDelivery delivery, std::string& refused);

    // Host mode. runMainQueue is false, having done nothing, while another thread
    // serves the queue.
    bool runMainQueue();
    void stopMainQueue();
    // Host mode: what is due now. Virtual time: settle. Empty when virtual time got stuck.
    std::optional<std::size_t> runPending();
    bool hostIsRunning() const;

    // Virtual time; the caller checked the mode.
    double virtualNow() const;
    bool advanceTo(double time);
    bool settle();
    std::optional<double> nextTimer() const;

    // Debug console. The console lives in the layer below this one, which makes it
    // through `start` (null, with the reason in `error`, when it could not start).
    // Returns empty when started, else the reason; `alreadyRunning` tells the two
    // failures apart.
    std::optional<std::string> startConsole(
        const std::function<std::unique_ptr<ConsoleHandle>(std::string& error)>& start, bool& alreadyRunning);
    void stopConsole();
    std::string consoleUrl() const;

private:
    // The queues of this session drained once: pumped on the calling thread in
    // virtual time, waited for (or, with nobody serving the host's main queue, run
    // here) otherwise.
    bool drainQueues(double timeoutSeconds);
    void stopMainQueueThread(double timeoutSeconds);
    // Waits until the main queue ran everything posted before the call.
    bool flushMainQueue(double timeoutSeconds);

    const MainQueueMode mode_;
    std::shared_ptr<SimulatedLocationService> locations_;
    std::shared_ptr<TriggerCallback> delegate_;
    std::shared_ptr<CallbackConsole> console_; // when the host asked for its lines

    // Own thread and host modes.
    std::shared_ptr<RunLoopMainQueue> runLoop_;
    std::shared_ptr<virtualtime::ManualDispatchQueues> threadedQueues_; // counted, so close can wait for them
    std::thread mainThread_;
    mutable std::mutex hostMutex_;
    std::condition_variable hostDone_;
    bool hostRunning_ = false;

    // Virtual time.
    std::unique_ptr<VirtualTime> virtual_;

    std::mutex pumpMutex_; // virtual time: one pump at a time

    mutable std::mutex debugConsoleMutex_;
    std::unique_ptr<ConsoleHandle> debugConsole_;
};

} // namespace bvgeo::capi
