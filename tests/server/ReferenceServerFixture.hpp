// Shared by the reference server tests: a temporary root with zone files whose
// modification time the test chooses, a trigger database beside it, and a valid
// trigger body to vary. Single-threaded; the directory goes when the test ends.
#pragma once

#include "server/ReferenceServer.hpp"
#include "support/TempDir.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <utime.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace bvgeo::testing {

// 784111777 is the date HTTP's own examples use.
inline constexpr std::int64_t kZoneTime = 784111777;
inline constexpr const char* kZoneTimeText = "Sun, 06 Nov 1994 08:49:37 GMT";
inline constexpr const char* kZoneBody =
    R"({"fences":[{"_id":"f1","name":"Shop","location":{"type":"Point","coordinates":[13.4,52.5]},)"
    R"("radius":150,"content_ids":["c1"]}]})";
inline constexpr const char* kDeviceId = "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D";

class ReferenceServerFixture : public ::testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(root_); }

    ReferenceServerOptions options() const {
        ReferenceServerOptions out;
        out.rootDirectory = root_.string();
        out.triggerDatabasePath = (dir_ / "triggers.sqlite").string();
        out.now = [] { return std::int64_t{1'700'000'000}; };
        return out;
    }

    void writeZone(const std::string& relative, const std::string& body, std::int64_t modified) {
        auto path = root_ / relative;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << body;
        utimbuf times{static_cast<time_t>(modified), static_cast<time_t>(modified)};
        ASSERT_EQ(::utime(path.c_str(), &times), 0);
    }

    static nlohmann::json trigger(const std::string& event = "enter", const std::string& fenceId = "f1") {
        return {{"deviceId", kDeviceId}, {"event", event}, {"timestamp", 1'600'000'000}, {"fenceId", fenceId}};
    }

    static ServerRequest get(const std::string& path, HeaderList headers = {}) {
        return {"GET", path, "", std::move(headers), ""};
    }
    static ServerRequest post(const std::string& appId, const std::string& body,
                              const std::string& query = "sdk_ver=1.3.0") {
        return {"POST", "/api/v1/app/" + appId + "/trigger", query, {{"Content-Type", "application/json"}}, body};
    }

    const TempDir dir_{"bvgeo-server"};
    const std::filesystem::path root_ = dir_ / "root";
};

} // namespace bvgeo::testing
