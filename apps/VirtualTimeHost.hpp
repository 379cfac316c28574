// VirtualTimeHost: runs the library as a host process would, but on a clock that
// the program moves. Installs a platform whose clock, main queue and serial queues
// advance only when told to (the rest is the Linux default: documents directory,
// settings file, date formatting, real HTTP). Positions come from a simulated
// location service. Everything runs on the thread that calls it; HTTP completions
// arrive on the transport thread and are waited for before time moves on, so a
// replay gives what a device would have produced over the same hours. Time is
// driven by the same VirtualTime a C host's virtual-time mode runs on.
#pragma once

#include "capi/VirtualTime.hpp"

#include <bvgeo/platform/Console.hpp>
#include <bvgeo/platform/Reachability.hpp>
#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>

#include <memory>
#include <string>

namespace bvgeo::cli {

class VirtualTimeHost {
public:
    VirtualTimeHost(std::string documentsDirectory, double startTime, std::shared_ptr<Console> console);
    // Installs the platform. Call once, before the library's first use.
    // `reachability`, when given, replaces the machine's.
    void install(std::shared_ptr<Reachability> reachability = nullptr);

    double now() const { return time_.now(); }
    // Fires every timer due up to `time`, in order, running what each started; then
    // leaves the clock at `time` (never moves it backwards). Stops where the library
    // kept busy past the bounds (see settle).
    void advanceTo(double time);
    // Sets the clock to the fix's time, delivers it, runs everything it started.
    void deliver(double latitude, double longitude, double time);
    void deliver(const Location& fix);
    // Runs queued work and waits for transfers until nothing is left. False when the
    // library kept busy past the bounds (a transfer hung, work kept being posted).
    bool settle();
    // The due time of the next timer, if any.
    std::optional<double> nextTimer() const { return time_.nextTimer(); }

private:
    std::string documents_;
    std::shared_ptr<Console> console_;
    capi::VirtualTime time_;
    std::shared_ptr<SimulatedLocationService> locations_;
};

} // namespace bvgeo::cli
