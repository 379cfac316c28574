// GpsdLocationService: live positions from a running gpsd. A reader thread of its
// own (the location delivery thread) watches gpsd's reports through libgps and
// hands every new 2D/3D fix (with gpsd's error estimate, speed, HDOP, satellites
// used and 2D/3D mode) to the managers the trackers made, with the same rules
// as the simulated service it wraps: each manager's distance filter, and 500 m
// between significant-change deliveries. When gpsd is not there or goes away the
// thread keeps trying to reconnect until stop(). Thread-safe.
#pragma once

#include <bvgeo/platform/Console.hpp>
#include <bvgeo/platform/virtualtime/SimulatedLocationService.hpp>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace bvgeo {

class GpsdLocationService final : public LocationService {
public:
    // `host` and `port` of gpsd (localhost and 2947 by default). Status lines
    // (connected, lost, reconnecting) go to `status` when it is set.
    GpsdLocationService(std::string host = "localhost", std::string port = "2947",
                        std::function<void(const std::string&)> status = {});
    ~GpsdLocationService() override; // stops the reader

    std::unique_ptr<LocationManager> makeLocationManager() override;
    AuthorizationStatus authorizationStatus() const override;

    // Starts the reader thread; idempotent.
    void start();
    // Stops and joins the reader thread; idempotent. Returns within about half a second.
    void stop();

    // Fixes handed to the managers so far.
    std::size_t fixesDelivered() const { return delivered_.load(); }
    // Waits until at least `count` fixes were delivered or `timeoutSeconds` passed.
    bool waitForFixes(std::size_t count, double timeoutSeconds) const;

private:
    void run();
    void report(const std::string& line);

    const std::string host_, port_;
    std::function<void(const std::string&)> status_;
    SimulatedLocationService managers_;
    std::thread reader_;
    std::atomic<bool> stopping_{false};
    std::atomic<std::size_t> delivered_{0};
    mutable std::mutex mutex_;
    mutable std::condition_variable fixArrived_;
    double lastFixTime_ = 0.0; // reader thread only
};

} // namespace bvgeo
