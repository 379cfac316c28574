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

enum Column { kTime, kLatitude, kLongitude, kColumns };

struct ColumnNames {
    std::array<std::string_view, 3> accepted;
    const char* described;
};

constexpr ColumnNames kColumnNames[kColumns] = {
    {{"time", "timestamp", ""}, "time (or timestamp)"},
    {{"lat", "latitude", ""}, "lat (or latitude)"},
    {{"lon", "lng", "longitude"}, "lon (or lng, longitude)"},
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

} // namespace

bool isCsvTrackHeader(std::string_view line) {
    if (line.find(',') == std::string_view::npos) return false;
    CsvRecordReader reader(line, kTrackDialect);
    CsvRecordReader::Record names;
    if (reader.next(names) != CsvRecordReader::Status::Record) return false;
    for (const std::string& name : names.fields) {
        if (columnNamed(trim(name))) return true;
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
    for (int column = 0; column < kColumns; ++column) {
        if (!index[column]) missing += std::string(missing.empty() ? "" : ", ") + kColumnNames[column].described;
    }
    if (!missing.empty()) return fixes.fail(record.line, "the header has no column " + missing);

    while ((status = reader.next(record)) != Status::End) {
        const std::size_t lineNumber = record.line;
        if (status == Status::Record && isBlank(record)) continue;
        if (status == Status::Malformed || fields.size() != columnCount) {
            fixes.skip(TrackSkip::BadCoordinates, lineNumber);
            continue;
        }
        const auto latitude = parseDecimal(trim(fields[*index[kLatitude]]));
        const auto longitude = parseDecimal(trim(fields[*index[kLongitude]]));
        if (!latitude || !longitude) {
            fixes.skip(TrackSkip::BadCoordinates, lineNumber);
            continue;
        }
        const std::string_view timeText = trim(fields[*index[kTime]]);
        if (timeText.empty()) {
            fixes.skip(TrackSkip::NoTime, lineNumber);
            continue;
        }
        const auto time = parseCsvTime(timeText);
        if (!time) {
            fixes.skip(TrackSkip::BadTime, lineNumber);
            continue;
        }
        fixes.add(*latitude, *longitude, *time, lineNumber);
    }
}

} // namespace bvgeo
