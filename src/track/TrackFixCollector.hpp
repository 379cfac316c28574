// TrackFixCollector: the rules every track format shares. A reader hands it each
// fix it finds, or the reason it could not make one, and the collector decides
// what is kept: coordinates in range, a time from 1970 up to a day past `now`,
// and each time strictly later than the one before. It owns the growing result,
// counts the skips and words the warnings. One collector serves one read on one
// thread.
#pragma once

#include "track/TrackReader.hpp"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace bvgeo {

enum class TrackSkip { NoTime, OutOfOrder, BadCoordinates, BadChecksum, BadTime, NoFix };

class TrackFixCollector {
public:
    // `mergeSameInstant`: a fix with the same time as the last kept one is dropped
    // quietly instead of counted as out of order. NMEA receivers report one
    // instant in several sentences; in other formats a repeated time is a fault.
    TrackFixCollector(std::string_view name, TrackFormat format, const TrackReadOptions& options,
                      bool mergeSameInstant);

    void add(double latitude, double longitude, double timestamp, std::size_t line);
    // With what the file says about the fix. A fix merged into the one before (same
    // instant) lends that one whatever quality it did not know yet.
    void add(double latitude, double longitude, double timestamp, std::size_t line, const TrackFixQuality& quality);
    // Quality said apart from a position (NMEA GSA, GST) for the newest fix, when
    // that fix is of `timestamp` (or of any time, when `timestamp` is negative).
    void amendLast(const TrackFixQuality& quality, double timestamp = -1.0);
    void skip(TrackSkip reason, std::size_t line);

    // The file cannot be played. `line` 0 means the fault has no one line. The
    // first failure wins; later ones usually follow from it.
    void fail(std::size_t line, std::string_view message);
    bool failed() const { return mFailed; }

    std::string_view name() const { return mName; }

    // The result; the collector is spent afterwards.
    TrackReadResult finish();

private:
    static constexpr std::size_t kReasons = 6;

    std::string mName;
    double mNow;
    bool mMergeSameInstant;
    bool mFailed = false;
    TrackReadResult mResult;
    std::array<std::size_t, kReasons> mCounts{};
    std::array<std::size_t, kReasons> mFirstLine{};
};

} // namespace bvgeo
