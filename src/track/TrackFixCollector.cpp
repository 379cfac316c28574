#include "track/TrackFixCollector.hpp"

#include <cmath>
#include <utility>

namespace bvgeo {
namespace {

constexpr double kOneDay = 86400.0;

struct SkipWording {
    const char* one;
    const char* many;
    const char* why;
};

// Indexed by TrackSkip.
constexpr SkipWording kWording[] = {
    {"fix", "fixes", "without a time"},
    {"fix", "fixes", "not later than the fix before"},
    {"fix", "fixes", "with missing or impossible coordinates"},
    {"sentence", "sentences", "with a wrong checksum"},
    {"fix", "fixes", "with an unreadable or impossible time"},
    {"sentence", "sentences", "reporting no position fix"},
};

void assignCount(TrackReadResult& result, TrackSkip reason, std::size_t count) {
    switch (reason) {
    case TrackSkip::NoTime: result.skippedNoTime = count; break;
    case TrackSkip::OutOfOrder: result.skippedOutOfOrder = count; break;
    case TrackSkip::BadCoordinates: result.skippedBadCoordinates = count; break;
    case TrackSkip::BadChecksum: result.skippedBadChecksum = count; break;
    case TrackSkip::BadTime: result.skippedBadTime = count; break;
    case TrackSkip::NoFix: result.skippedNoFix = count; break;
    }
}

} // namespace

TrackFixCollector::TrackFixCollector(std::string_view name, TrackFormat format, const TrackReadOptions& options,
                                     bool mergeSameInstant)
    : mName(name), mNow(options.now), mMergeSameInstant(mergeSameInstant) {
    mResult.format = format;
}

void TrackFixQuality::fillFrom(const TrackFixQuality& other) {
    if (accuracy < 0.0) accuracy = other.accuracy;
    if (hdop < 0.0) hdop = other.hdop;
    if (speed < 0.0) speed = other.speed;
    if (satellites < 0) satellites = other.satellites;
    if (mode == FixMode::Unknown) mode = other.mode;
}

void TrackFixCollector::add(double latitude, double longitude, double timestamp, std::size_t line) {
    add(latitude, longitude, timestamp, line, TrackFixQuality{});
}

void TrackFixCollector::amendLast(const TrackFixQuality& quality, double timestamp) {
    if (mResult.fixes.empty()) return;
    TrackFix& last = mResult.fixes.back();
    if (timestamp < 0.0 || last.timestamp == timestamp) last.quality.fillFrom(quality);
}

void TrackFixCollector::add(double latitude, double longitude, double timestamp, std::size_t line,
                            const TrackFixQuality& quality) {
    // NaN fails every comparison, so the tests are written to let only good values through.
    if (!(std::fabs(latitude) <= 90.0) || !(std::fabs(longitude) <= 180.0)) {
        skip(TrackSkip::BadCoordinates, line);
        return;
    }
    if (!(timestamp >= 0.0) || !std::isfinite(timestamp) || (mNow > 0.0 && timestamp > mNow + kOneDay)) {
        skip(TrackSkip::BadTime, line);
        return;
    }
    if (!mResult.fixes.empty()) {
        const double last = mResult.fixes.back().timestamp;
        if (mMergeSameInstant && timestamp == last) {
            mResult.fixes.back().quality.fillFrom(quality);
            return;
        }
        if (timestamp <= last) {
            skip(TrackSkip::OutOfOrder, line);
            return;
        }
    }
    mResult.fixes.push_back(TrackFix{latitude, longitude, timestamp, line, quality});
}

void TrackFixCollector::skip(TrackSkip reason, std::size_t line) {
    const auto index = static_cast<std::size_t>(reason);
    if (mCounts[index]++ == 0) mFirstLine[index] = line;
}

void TrackFixCollector::fail(std::size_t line, std::string_view message) {
    if (mFailed) return;
    mFailed = true;
    mResult.error = mName;
    if (line > 0) {
        mResult.error += ':';
        mResult.error += std::to_string(line);
    }
    mResult.error += ": ";
    mResult.error += message;
}

TrackReadResult TrackFixCollector::finish() {
    std::string skipped; // the warnings again, for the error when nothing is left
    for (std::size_t index = 0; index < kReasons; ++index) {
        const std::size_t count = mCounts[index];
        assignCount(mResult, static_cast<TrackSkip>(index), count);
        if (count == 0) continue;
        const SkipWording& wording = kWording[index];
        std::string text = std::to_string(count) + " " + (count == 1 ? wording.one : wording.many) + " " +
                           wording.why + " skipped";
        if (mFirstLine[index] > 0) text += " (first on line " + std::to_string(mFirstLine[index]) + ")";
        mResult.warnings.push_back(mName + ": " + text);
        skipped += (skipped.empty() ? "" : "; ") + text;
    }

    if (!mFailed && mResult.fixes.empty()) {
        fail(0, skipped.empty() ? "no usable fixes: the file holds no track points"
                                : "no usable fixes: " + skipped);
    }
    // Half a track is worse than none: a replay would end early without saying why.
    if (mFailed) mResult.fixes.clear();
    mResult.ok = !mFailed;
    return std::move(mResult);
}

} // namespace bvgeo
