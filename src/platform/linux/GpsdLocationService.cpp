#include "platform/linux/GpsdLocationService.hpp"

#include <gps.h>

#include <cerrno>
#include <chrono>
#include <cmath>

namespace bvgeo {

namespace {
constexpr int kWaitMicroseconds = 250'000;   // how often the reader looks at the stop flag
constexpr auto kReconnectDelay = std::chrono::seconds(2);
bool positive(double value) { return std::isfinite(value) && value > 0.0; }

// The fix with what gpsd says of its quality. gpsd's error estimates are meant at
// 95% confidence; halved, they come near the 68% radius a Location's accuracy is.
// DOPs and satellites come in gpsd's sky reports, when the receiver gives them;
// until one came they are NaN or 0 here, and stay unknown.
Location locationFrom(const gps_data_t& gps, double time) {
    Location fix{gps.fix.latitude, gps.fix.longitude, time};
    if (positive(gps.fix.eph)) fix.horizontalAccuracy = gps.fix.eph / 2.0;
    else if (positive(gps.fix.epx) && positive(gps.fix.epy)) fix.horizontalAccuracy = std::hypot(gps.fix.epx, gps.fix.epy) / 2.0;
    if (std::isfinite(gps.fix.speed) && gps.fix.speed >= 0.0) fix.speed = gps.fix.speed;
    if (positive(gps.dop.hdop)) fix.hdop = gps.dop.hdop;
    if (gps.satellites_used > 0) fix.satellitesUsed = gps.satellites_used;
    fix.fixMode = gps.fix.mode == MODE_3D ? FixMode::ThreeD : FixMode::TwoD;
    return fix;
}

} // namespace

GpsdLocationService::GpsdLocationService(std::string host, std::string port,
                                         std::function<void(const std::string&)> status)
    : host_(std::move(host)), port_(std::move(port)), status_(std::move(status)) {}

GpsdLocationService::~GpsdLocationService() { stop(); }

std::unique_ptr<LocationManager> GpsdLocationService::makeLocationManager() {
    return managers_.makeLocationManager();
}

// gpsd has no notion of permission: whoever can reach it gets positions.
AuthorizationStatus GpsdLocationService::authorizationStatus() const { return AuthorizationStatus::AuthorizedAlways; }

void GpsdLocationService::start() {
    std::lock_guard lock(mutex_);
    if (reader_.joinable()) return;
    stopping_ = false;
    reader_ = std::thread([this] { run(); });
}

void GpsdLocationService::stop() {
    std::thread reader;
    {
        std::lock_guard lock(mutex_);
        if (!reader_.joinable()) return;
        stopping_ = true;
        reader = std::move(reader_);
    }
    fixArrived_.notify_all();
    reader.join();
}

bool GpsdLocationService::waitForFixes(std::size_t count, double timeoutSeconds) const {
    std::unique_lock lock(mutex_);
    return fixArrived_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                                [&] { return delivered_.load() >= count; });
}

void GpsdLocationService::report(const std::string& line) {
    if (status_) status_(line);
}

void GpsdLocationService::run() {
    const std::string where = host_ + ":" + port_;
    bool reportedDown = false;
    while (!stopping_) {
        gps_data_t gps{};
        if (gps_open(host_.c_str(), port_.c_str(), &gps) != 0) {
            if (!reportedDown) report("gpsd: cannot connect to " + where + ": " + gps_errstr(errno) + "; retrying");
            reportedDown = true;
            std::unique_lock lock(mutex_);
            fixArrived_.wait_for(lock, kReconnectDelay, [&] { return stopping_.load(); });
            continue;
        }
        reportedDown = false;
        report("gpsd: connected to " + where);
        gps_stream(&gps, WATCH_ENABLE | WATCH_JSON, nullptr);
        bool lost = false;
        while (!stopping_ && !lost) {
            errno = 0;
            if (!gps_waiting(&gps, kWaitMicroseconds)) {
                // No data: either nothing new, or the socket is gone (errno set).
                if (errno != 0 && errno != EAGAIN && errno != EINTR) lost = true;
                continue;
            }
            if (gps_read(&gps, nullptr, 0) == -1) {
                lost = true;
                break;
            }
            const bool positioned = (gps.set & LATLON_SET) && (gps.set & TIME_SET) && gps.fix.mode >= MODE_2D;
            if (!positioned || !std::isfinite(gps.fix.latitude) || !std::isfinite(gps.fix.longitude)) continue;
            const double time =
                static_cast<double>(gps.fix.time.tv_sec) + static_cast<double>(gps.fix.time.tv_nsec) / 1e9;
            // gpsd repeats a fix in several reports of one cycle; each instant counts once.
            if (time <= lastFixTime_) continue;
            lastFixTime_ = time;
            managers_.push(locationFrom(gps, time));
            {
                std::lock_guard lock(mutex_);
                delivered_.fetch_add(1);
            }
            fixArrived_.notify_all();
        }
        gps_stream(&gps, WATCH_DISABLE, nullptr);
        gps_close(&gps);
        if (lost && !stopping_) report("gpsd: connection to " + where + " lost; reconnecting");
    }
}

} // namespace bvgeo
