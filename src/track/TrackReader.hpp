// Reading recorded tracks (GPX, NMEA 0183, CSV) into a list of timed fixes that a
// replay can feed to the location pipeline. The readers own nothing beyond the
// result they return; they hold no global state, so any thread may call them, and
// calls on different threads need no locking. The whole file is held in memory.
// Nothing here throws: every failure ends up in `TrackReadResult::error`.
#pragma once

#include <bvgeo/platform/LocationService.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bvgeo {

// What a file says about a fix's quality. Each field keeps its "unknown" value
// (negative, or FixMode::Unknown) when the file says nothing usable: a zero,
// negative or unreadable accuracy, HDOP or speed counts as not said.
struct TrackFixQuality {
    double accuracy = -1.0; // metres, radius of about 68% confidence (GST, an accuracy column or extension)
    double hdop = -1.0;     // horizontal dilution of precision (GGA, GSA, GPX <hdop>, a column)
    double speed = -1.0;    // metres per second over ground
    int satellites = -1;    // satellites used in the solution
    FixMode mode = FixMode::Unknown;

    // Fills what this one does not know from `other`.
    void fillFrom(const TrackFixQuality& other);
};

struct TrackFix {
    double latitude = 0.0;
    double longitude = 0.0;
    double timestamp = 0.0; // seconds since 1970-01-01T00:00:00Z
    std::size_t line = 0;   // 1-based line in the source the fix came from
    TrackFixQuality quality;
};

enum class TrackFormat { Gpx, Nmea, Csv };

struct TrackReadOptions {
    // "YYYY-MM-DD": the UTC date for NMEA logs whose sentences carry only a time of
    // day. The log's own RMC/ZDA dates take over once they appear. Other formats
    // ignore it.
    std::optional<std::string> date;
    // Seconds since 1970. When positive, fixes more than a day after it are skipped
    // as having a bad time (a receiver with a wrong clock, not a real recording).
    double now = 0.0;
};

struct TrackReadResult {
    bool ok = false;   // false: nothing can be played; `error` says why
    std::string error; // "<name>: ..." or "<name>:<line>: ..."
    TrackFormat format{};
    std::vector<TrackFix> fixes; // strictly increasing timestamps

    // Fixes (or position sentences) left out, by reason.
    std::size_t skippedNoTime = 0;
    std::size_t skippedOutOfOrder = 0;     // not later than the fix before
    std::size_t skippedBadCoordinates = 0; // missing, unreadable or out of range
    std::size_t skippedBadChecksum = 0;    // NMEA RMC/GGA/GLL/ZDA/GSA/GST whose *hh does not match
    std::size_t skippedBadTime = 0;        // unreadable, before 1970, or in the future
    std::size_t skippedNoFix = 0;          // sentences, points or rows saying the receiver had no fix

    // One line per non-zero counter, e.g. "run.csv: 3 fixes without a time skipped
    // (first on line 12)". Meant to be shown to the user as they are.
    std::vector<std::string> warnings;
};

// Reads the file at `path`. Errors and warnings name the file by `path` as given.
TrackReadResult readTrackFile(const std::string& path, const TrackReadOptions& options = {});

// Reads a track held in memory; `name` stands for the file in errors and warnings.
TrackReadResult readTrack(std::string_view content, std::string_view name,
                                    const TrackReadOptions& options = {});

// The format the content is written in, judged by the content alone: XML with a
// <gpx> root, NMEA sentences, or a CSV header naming at least one of the time,
// latitude and longitude columns. Empty when it is none of them.
std::optional<TrackFormat> detectTrackFormat(std::string_view content);

// "GPX", "NMEA" or "CSV".
const char* trackFormatName(TrackFormat format);

} // namespace bvgeo
