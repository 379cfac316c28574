// The vocabulary a host configures the tracker with: tuning options, environments,
// trigger modes, error codes, the library version, and the two enumerations that
// describe a trigger. Plain values; safe to copy between threads.
#pragma once

#include <bvgeo/Export.hpp>
#include <bvgeo/LocationAccuracy.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

inline constexpr std::string_view SDK_VERSION = "1.3.0";

// The tuning record, read as a whole copy through BVGeoTracker::config().
struct BVGEO_API configOptions {
    double locationAccuracy = kLocationAccuracyNearestTenMeters; // metres
    double locationDistanceFilt = 30.0;                          // metres
    std::int64_t cacheExpiration = 3600;                         // seconds
    double zoneInterval = 0.2;                                   // degrees
    double locationDeferringTime = 30.0;                         // seconds
    std::int64_t lingerTime = 300;                               // seconds
    std::int64_t maxLingerTime = 7200;                           // seconds
    double requestQueueRetryInterval = 30.0;                     // seconds
    double requestQueueTimer = 1.0;                              // seconds
    double requestQueueTolerance = 5.0;                          // seconds

    bool operator==(const configOptions&) const = default;
};

enum class BVEnvironment : int { PRODUCTION = 0, STAGING = 1, QA = 2, DEVELOPMENT = 3 };

BVGEO_API std::optional<BVEnvironment> environmentFromRaw(int raw);
inline constexpr int rawValue(BVEnvironment e) { return static_cast<int>(e); }

struct BVEnvironments {
    static constexpr int Production = 0;
    static constexpr int Staging = 1;
    static constexpr int QA = 2;
    static constexpr int Development = 3;
};

enum class TriggerMode : int { BOTH = 0, LOCAL_ONLY = 1, REMOTE_ONLY = 2 };

BVGEO_API std::optional<TriggerMode> triggerModeFromRaw(int raw);
inline constexpr int rawValue(TriggerMode m) { return static_cast<int>(m); }

struct TriggerModes {
    static constexpr int Both = 0;
    static constexpr int LocalOnly = 1;
    static constexpr int RemoteOnly = 2;
};

struct BVErrorCodes {
    static constexpr int kErrorResetDatabaseAlreadyExists = 1000;
    static constexpr int kErrorResetDatabaseNameMandatory = 1001;
    // The archive name holds a path separator or a NUL, or is "." or "..".
    static constexpr int kErrorResetDatabaseNameInvalid = 1002;
};

enum class TriggerType : int { Enter = 0, Exit = 1, Linger = 2 };

BVGEO_API std::string_view rawValue(TriggerType type);
BVGEO_API std::optional<TriggerType> triggerTypeFromRaw(std::string_view raw);

enum class TriggerLocationEventType : int { Unknown = 0, Regular = 1, SignificantChanges = 2 };

BVGEO_API std::string_view rawValue(TriggerLocationEventType type);
BVGEO_API std::optional<TriggerLocationEventType> triggerLocationEventTypeFromRaw(std::string_view raw);

} // namespace bvgeo
