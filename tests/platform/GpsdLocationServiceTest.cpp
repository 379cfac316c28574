// Live positions through a real gpsd, fed by gpsfake from an NMEA log.
#include "platform/linux/GpsdLocationService.hpp"

#include "support/BindLoopback.hpp"
#include "support/Nmea.hpp"
#include "support/TempDir.hpp"

#include <bvgeo/platform/LinuxPlatform.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

extern char** environ;

namespace bvgeo {
namespace {

struct Fix {
    double latitude, longitude, time;
};

// RMC and GGA for each fix, 1 s apart, heading north from 51.34 N 0.70 E.
std::vector<Fix> writeLog(const std::string& path, int count) {
    std::vector<Fix> fixes;
    std::ofstream log(path);
    const double start = 1'793'517'660.0; // 2026-11-01 07:21:00Z
    for (int i = 0; i < count; ++i) {
        const double latitude = 51.34 + i * 0.0005;
        char minutes[16], clock[16];
        std::snprintf(minutes, sizeof minutes, "%07.4f", (latitude - 51.0) * 60.0);
        std::snprintf(clock, sizeof clock, "07%02d%02d.00", 21 + i / 60, i % 60);
        const std::string position = std::string("51") + minutes + ",N,00042.0000,E";
        log << testing::nmeaSentence(std::string("GPRMC,") + clock + ",A," + position + ",5.0,0.0,011126,,,A") << "\r\n";
        log << testing::nmeaSentence(std::string("GPGGA,") + clock + "," + position + ",1,08,0.9,10.0,M,47.0,M,,") << "\r\n";
        fixes.push_back({51.0 + std::stod(minutes) / 60.0, 0.7, start + i});
    }
    return fixes;
}

int freePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const int port = testing::bindLoopback(fd);
    ::close(fd);
    return port;
}

// gpsfake with its own gpsd on `port`, killed (with its process group) on destruction.
class GpsFake {
public:
    GpsFake(const std::string& log, int port) {
        const std::string portText = std::to_string(port);
        std::vector<std::string> words{"gpsfake", "-q", "-1", "-c", "0.05", "-P", portText, log};
        std::vector<char*> argv;
        for (auto& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
        // gpsfake starts the gpsd it finds on the PATH, which lives in /usr/sbin.
        std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
        std::vector<char*> env{path.data(), nullptr};
        started_ = posix_spawnp(&pid_, "gpsfake", &files, &attributes, argv.data(), env.data()) == 0;
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    ~GpsFake() {
        if (!started_) return;
        ::kill(-pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    bool started() const { return started_; }

private:
    pid_t pid_ = 0;
    bool started_ = false;
};

struct Recorder : LocationManagerDelegate {
    void locationManagerDidUpdateLocations(LocationManager&, const std::vector<Location>& batch) override {
        std::lock_guard lock(mutex);
        for (const auto& fix : batch) received.push_back(fix);
    }
    std::mutex mutex;
    std::vector<Location> received;
};

TEST(GpsdLocationService, DeliversGpsdFixesInOrderWithTheirQualityToRunningManagers) {
    const testing::TempDir dir("bvgeo-gpsfake");
    const auto log = dir / "fixes.nmea";
    const auto fixes = writeLog(log, 40);
    const int port = freePort();
    GpsFake feeder(log, port);
    ASSERT_TRUE(feeder.started()) << "gpsfake (Debian package gpsd-clients) is needed";

    std::vector<std::string> status;
    std::mutex statusMutex;
    GpsdLocationService service("127.0.0.1", std::to_string(port), [&](const std::string& line) {
        std::lock_guard lock(statusMutex);
        status.push_back(line);
    });
    Recorder running, idle;
    auto manager = service.makeLocationManager();
    manager->setDelegate(&running);
    manager->startUpdatingLocation();
    auto stopped = service.makeLocationManager();
    stopped->setDelegate(&idle);
    service.start();

    // gpsfake plays the log once at 20 sentences a second; whatever part of it the
    // service catches must come through as the log's own fixes, oldest first.
    ASSERT_TRUE(service.waitForFixes(5, 60.0)) << "no fixes from gpsd on port " << port;
    service.stop();

    std::lock_guard lock(running.mutex);
    ASSERT_GE(running.received.size(), 5u);
    double previous = 0.0;
    for (const auto& got : running.received) {
        EXPECT_GT(got.timestamp, previous);
        previous = got.timestamp;
        const auto index = static_cast<std::size_t>(std::llround(got.timestamp - fixes.front().time));
        ASSERT_LT(index, fixes.size()) << "a fix at a time the log does not have: " << got.timestamp;
        EXPECT_NEAR(got.latitude, fixes[index].latitude, 1e-7);
        EXPECT_NEAR(got.longitude, fixes[index].longitude, 1e-7);
    }
    EXPECT_TRUE(idle.received.empty()) << "a manager that was not started got fixes";
    const Location& fix = running.received.back();
    EXPECT_NEAR(fix.speed, 5.0 * 1852.0 / 3600.0, 0.01) << "RMC's 5 knots";
    EXPECT_GT(fix.horizontalAccuracy, 0.0) << "gpsd's error estimate";
    EXPECT_NE(fix.fixMode, FixMode::Unknown);
    // gpsd sends DOPs and satellites in its sky reports, which this log (no GSA or
    // GSV) does not make: unknown, not zero.
    EXPECT_LT(fix.hdop, 0.0);
    EXPECT_LT(fix.satellitesUsed, 0);
    std::lock_guard statusLock(statusMutex);
    // gpsfake may still be starting its gpsd at the first attempt: then a retry connects.
    EXPECT_THAT(status, ::testing::Contains("gpsd: connected to 127.0.0.1:" + std::to_string(port)));
}

TEST(GpsdLocationService, WithoutGpsdItReportsOnceAndStopsPromptly) {
    std::vector<std::string> status;
    std::mutex statusMutex;
    const int port = freePort();
    GpsdLocationService service("127.0.0.1", std::to_string(port), [&](const std::string& line) {
        std::lock_guard lock(statusMutex);
        status.push_back(line);
    });
    service.start();
    EXPECT_FALSE(service.waitForFixes(1, 0.5));
    service.stop();
    std::lock_guard lock(statusMutex);
    ASSERT_EQ(status.size(), 1u);
    EXPECT_EQ(status[0].rfind("gpsd: cannot connect to 127.0.0.1:" + std::to_string(port), 0), 0u) << status[0];
}

TEST(GpsdLocationService, TheHostsFactoryGivesAStartedServiceThatStopsWithItsLastReference) {
    std::mutex statusMutex;
    std::condition_variable statusChanged;
    std::vector<std::string> status;
    const int port = freePort();
    auto service = makeGpsdLocationService("127.0.0.1", std::to_string(port), [&](const std::string& line) {
        std::lock_guard lock(statusMutex);
        status.push_back(line);
        statusChanged.notify_all();
    });
    {
        std::unique_lock lock(statusMutex);
        ASSERT_TRUE(statusChanged.wait_for(lock, std::chrono::seconds(10), [&] { return !status.empty(); }))
            << "the service tried gpsd without being started by hand";
        EXPECT_EQ(status[0].rfind("gpsd: cannot connect to 127.0.0.1:" + std::to_string(port), 0), 0u) << status[0];
    }
    service.reset(); // the last reference: stops and joins the reader before the status sink goes
}

} // namespace
} // namespace bvgeo
