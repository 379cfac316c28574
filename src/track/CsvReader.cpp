#include "track/CsvReader.hpp"

#include "track/LineCursor.hpp"
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

// Splits one row into `fields`, unquoting as it goes; false when a quote is left
// open. `fields` is reused from row to row to spare allocations.
bool splitRow(std::string_view row, std::vector<std::string>& fields) {
    fields.clear();
    std::size_t pos = 0;
    while (true) {
        std::string& field = fields.emplace_back();
        while (pos < row.size() && (row[pos] == ' ' || row[pos] == '\t')) ++pos;
        if (pos < row.size() && row[pos] == '"') {
            ++pos;
            while (true) {
                if (pos >= row.size()) return false;
                if (row[pos] == '"') {
                    if (pos + 1 < row.size() && row[pos + 1] == '"') {
                        field += '"';
                        pos += 2;
                        continue;
                    }
                    ++pos;
                    break;
                }
                field += row[pos++];
            }
            while (pos < row.size() && row[pos] != ',') {
                if (row[pos] != ' ' && row[pos] != '\t') return false; // text after the closing quote
                ++pos;
            }
        } else {
            const auto comma = row.find(',', pos);
            field = trim(row.substr(pos, comma == std::string_view::npos ? comma : comma - pos));
            pos = comma == std::string_view::npos ? row.size() : comma;
        }
        if (pos >= row.size()) return true;
        ++pos; // the comma
    }
}

// Seconds since 1970 as a plain number, or an ISO 8601 date and time.
std::optional<double> parseCsvTime(std::string_view text) {
    if (const auto seconds = parseDecimal(text)) return seconds;
    return parseIsoDateTime(text);
}

} // namespace

bool isCsvTrackHeader(std::string_view line) {
    if (line.find(',') == std::string_view::npos) return false;
    std::vector<std::string> names;
    if (!splitRow(line, names)) return false;
    for (const std::string& name : names) {
        if (columnNamed(trim(name))) return true;
    }
    return false;
}

void readCsv(std::string_view content, TrackFixCollector& fixes) {
    LineCursor lines(content);
    std::string_view line;
    while (lines.next(line) && trim(line).empty()) {
    }
    std::vector<std::string> fields;
    if (!splitRow(line, fields)) return fixes.fail(lines.lineNumber(), "unclosed quote in the header row");
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
    if (!missing.empty()) return fixes.fail(lines.lineNumber(), "the header has no column " + missing);

    while (lines.next(line)) {
        if (trim(line).empty()) continue;
        const std::size_t lineNumber = lines.lineNumber();
        if (!splitRow(line, fields) || fields.size() != columnCount) {
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
