#include "track/CsvReader.hpp"

#include "track/CsvRecordReader.hpp"
#include "track/TrackText.hpp"
#include "track/TrackTime.hpp"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace bvgeo {
namespace {

enum Column { kTime, kLatitude, kLongitude, kAccuracy, kHdop, kSpeed, kSatellites, kMode, kColumns };
// The first three are required; the rest are read when present.
constexpr int kRequiredColumns = 3;

struct ColumnNames {
    std::array<std::string_view, 6> accepted;
    const char* described;
};

constexpr ColumnNames kColumnNames[kColumns] = {
    {{"time", "timestamp", "time_utc", "timestamp_utc", "datetime", "date_time"},
     "time (or timestamp, time_utc, timestamp_utc, datetime)"},
    {{"lat", "latitude"}, "lat (or latitude)"},
    {{"lon", "lng", "longitude"}, "lon (or lng, longitude)"},
    {{"accuracy", "accuracy_m", "horizontal_accuracy", "hacc", "hacc_m"}, "accuracy"},
    {{"hdop"}, "hdop"},
    {{"speed", "speed_mps", "speed_ms"}, "speed"},
    {{"sats", "sats_used", "satellites", "satellites_used", "num_sats"}, "satellites"},
    {{"mode", "fix", "fix_mode"}, "mode"},
};

std::optional<Column> columnNamed(std::string_view name) {
    for (int column = 0; column < kColumns; ++column) {
        for (const std::string_view accepted : kColumnNames[column].accepted) {
            if (!accepted.empty() && equalsIgnoreCase(name, accepted)) return static_cast<Column>(column);
        }
    }
    return std::nullopt;
}

// One line per record, and a quoted field must end where its quote closes: a row
// that breaks either rule is skipped on its own, so one bad line costs one fix.
constexpr CsvRecordReader::Dialect kTrackDialect{.multiLine = false, .keepTextAfterQuote = false};

// A line of nothing but blanks, which the readers skip.
bool isBlank(const CsvRecordReader::Record& record) {
    return record.fields.size() == 1 && !record.quoted[0] && trim(record.fields[0]).empty();
}

// Seconds since 1970 as a plain number, or an ISO 8601 date and time.
std::optional<double> parseCsvTime(std::string_view text) {
    if (const auto seconds = parseDecimal(text)) return seconds;
    return parseIsoDateTime(text);
}

// gpsd's numbering (0 unknown, 1 no fix, 2, 3) or words such as "2d", "3D", "none".
FixMode parseMode(std::string_view text) {
    text = trim(text);
    if (text == "1" || equalsIgnoreCase(text, "none") || equalsIgnoreCase(text, "nofix") ||
        equalsIgnoreCase(text, "no fix"))
        return FixMode::NoFix;
    if (text == "2" || equalsIgnoreCase(text, "2d")) return FixMode::TwoD;
    if (text == "3" || equalsIgnoreCase(text, "3d")) return FixMode::ThreeD;
    return FixMode::Unknown;
}

int parseSatellites(std::string_view text) {
    const auto value = parseDecimal(trim(text));
    return value && *value >= 0.0 && *value <= 1000.0 && *value == static_cast<int>(*value) ? static_cast<int>(*value)
                                                                                           : -1;
}

} // namespace

bool isCsvTrackHeader(std::string_view line) {
    if (line.find(',') == std::string_view::npos) return false;
    CsvRecordReader reader(line, kTrackDialect);
    CsvRecordReader::Record names;
    if (reader.next(names) != CsvRecordReader::Status::Record) return false;
    for (const std::string& name : names.fields) {
        const auto column = columnNamed(trim(name));
        if (column && *column < kRequiredColumns) return true;
    }
    return false;
}

void readCsv(std::string_view content, TrackFixCollector& fixes) {
    using Status = CsvRecordReader::Status;
    CsvRecordReader reader(content, kTrackDialect);
    CsvRecordReader::Record record;
    Status status;
    while ((status = reader.next(record)) == Status::Record && isBlank(record)) {
    }
    if (status == Status::Malformed) return fixes.fail(record.line, "unclosed quote in the header row");
    const std::vector<std::string>& fields = record.fields;
    const std::size_t columnCount = fields.size();
    std::array<std::optional<std::size_t>, kColumns> index;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto column = columnNamed(trim(fields[i]));
        if (column && !index[*column]) index[*column] = i;
    }
    std::string missing;
    for (int column = 0; column < kRequiredColumns; ++column) {
        if (!index[column]) missing += std::string(missing.empty() ? "" : ", ") + kColumnNames[column].described;
    }
    if (!missing.empty()) return fixes.fail(record.line, "the header has no column " + missing);
    const auto text = [&](Column column) -> std::string_view {
        return index[column] ? std::string_view(fields[*index[column]]) : std::string_view();
    };

    while ((status = reader.next(record)) != Status::End) {
        const std::size_t lineNumber = record.line;
        if (status == Status::Record && isBlank(record)) continue;
        if (status == Status::Malformed || fields.size() != columnCount) {
            fixes.skip(TrackSkip::BadCoordinates, lineNumber);
            continue;
        }
        TrackFixQuality quality;
        quality.mode = parseMode(text(kMode));
        if (quality.mode == FixMode::NoFix) {
            fixes.skip(TrackSkip::NoFix, lineNumber);
            continue;
        }
        const auto latitude = parseDecimal(trim(text(kLatitude)));
        const auto longitude = parseDecimal(trim(text(kLongitude)));
        if (!latitude || !longitude) {
            fixes.skip(TrackSkip::BadCoordinates, lineNumber);
            continue;
        }
        const std::string_view timeText = trim(text(kTime));
        if (timeText.empty()) {
            fixes.skip(TrackSkip::NoTime, lineNumber);
            continue;
        }
        const auto time = parseCsvTime(timeText);
        if (!time) {
            fixes.skip(TrackSkip::BadTime, lineNumber);
            continue;
        }
        quality.accuracy = positiveOrUnknown(text(kAccuracy));
        quality.hdop = positiveOrUnknown(text(kHdop));
        quality.speed = nonNegativeOrUnknown(text(kSpeed));
        quality.satellites = parseSatellites(text(kSatellites));
        fixes.add(*latitude, *longitude, *time, lineNumber, quality);
    }
}

} // namespace bvgeo
