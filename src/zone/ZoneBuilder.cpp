#include "zone/ZoneBuilder.hpp"

#include "zone/ZoneGrid.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <regex>
#include <set>
#include <sstream>
#include <unordered_map>
#include <fcntl.h>
#include <unistd.h>

namespace bvgeo {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

// ---------------------------------------------------------------- reading

bool isFenceRadius(double radius) {
    // Half the earth's circumference: anything larger is not a circle on it.
    return std::isfinite(radius) && radius > 0.0 && radius <= 20'003'931.0;
}

// Shortest text that reads back as the same number: 95 -> "95", 0.1 -> "0.1".
std::string numberText(double value) {
    char buffer[32];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return error == std::errc() ? std::string(buffer, end) : std::string("?");
}

std::string checkPlace(double latitude, double longitude) {
    if (!std::isfinite(latitude) || latitude < -90.0 || latitude > 90.0)
        return "latitude " + numberText(latitude) + " is not between -90 and 90";
    if (!std::isfinite(longitude) || longitude < -180.0 || longitude > 180.0)
        return "longitude " + numberText(longitude) + " is not between -180 and 180";
    return {};
}

// Quoted for a message; bytes that are not UTF-8 show as U+FFFD.
std::string jsonText(const std::string& text) {
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

// Zone files are JSON, whose text must be UTF-8: a CSV saved as Latin-1 shows here.
bool isUtf8(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        auto byte = static_cast<unsigned char>(text[i]);
        std::size_t length = byte < 0x80           ? 1
                             : (byte >> 5) == 0x06 ? 2
                             : (byte >> 4) == 0x0E ? 3
                             : (byte >> 3) == 0x1E ? 4
                                                   : 0;
        if (length == 0 || i + length > text.size()) return false;
        std::uint32_t code = length == 1 ? byte : byte & (0x7F >> length);
        for (std::size_t k = 1; k < length; ++k) {
            auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and code points past U+10FFFF are not UTF-8 either.
        static constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (code < kSmallest[length] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) return false;
        i += length;
    }
    return true;
}

// Collects fences from either reader and applies the rules both share: the problem
// policy, and ids that must be unique across the input.
class FenceCollector {
public:
    FenceCollector(const std::string& sourceName, const ZoneBuildOptions& options)
        : source_(sourceName), options_(options) {}

    // `where` is "features[3]" or "17" (a line number); `problem` empty means the fence is good.
    void add(const std::string& where, ZoneFence fence, std::string problem) {
        if (failed()) return;
        if (!fence.id.empty()) {
            auto [first, inserted] = seen_.emplace(fence.id, where);
            if (!inserted) {
                fail(where, "duplicate id " + jsonText(fence.id) + " (first at " + first->second + ")");
                return;
            }
        }
        if (problem.empty()) problem = checkText(fence);
        if (!problem.empty()) {
            if (options_.strict)
                fail(where, problem);
            else
                result_.warnings.push_back(label(where) + ": skipped: " + problem);
            return;
        }
        result_.fences.push_back(std::move(fence));
    }

    void fail(const std::string& where, const std::string& problem) {
        if (failed()) return;
        result_.error = (where.empty() ? source_ : label(where)) + ": " + problem;
    }
    bool failed() const { return !result_.error.empty(); }

    // The radius the fence gets, or a problem when it has none usable.
    std::string radius(std::optional<double> given, ZoneFence& fence) const {
        if (!given) {
            if (!options_.defaultRadius) return "has no radius (and no default radius was given)";
            fence.radius = *options_.defaultRadius;
            return {};
        }
        if (!isFenceRadius(*given)) return "radius " + numberText(*given) + " is not a positive number of metres";
        fence.radius = *given;
        return {};
    }

    ZoneFenceList finish() && {
        if (!failed() && result_.fences.empty()) result_.error = source_ + ": no usable fences";
        result_.ok = !failed();
        if (!result_.ok) result_.fences.clear();
        return std::move(result_);
    }

private:
    static std::string checkText(const ZoneFence& fence) {
        if (!isUtf8(fence.id)) return "id is not UTF-8 text";
        if (!isUtf8(fence.name)) return "name is not UTF-8 text";
        for (const auto& id : fence.content_ids)
            if (!isUtf8(id)) return "content_ids are not UTF-8 text";
        return {};
    }

    std::string label(const std::string& where) const {
        bool line = !where.empty() && std::isdigit(static_cast<unsigned char>(where.front()));
        return source_ + (line ? ":" : ": ") + where;
    }

    const std::string& source_;
    const ZoneBuildOptions& options_;
    ZoneFenceList result_;
    std::unordered_map<std::string, std::string> seen_;  // id -> where it first appeared
};

// GeoJSON ids may be text or whole numbers; the zone file carries text.
std::optional<std::string> idText(const json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_number_integer()) return value.dump();
    return std::nullopt;
}

std::string readFeature(const json& feature, ZoneFence& fence, FenceCollector& collector) {
    if (!feature.is_object()) return "is not a Feature object";
    const json* properties = nullptr;
    if (auto it = feature.find("properties"); it != feature.end() && it->is_object()) properties = &*it;
    auto property = [&](const char* key) -> const json* {
        if (!properties) return nullptr;
        auto it = properties->find(key);
        return it == properties->end() || it->is_null() ? nullptr : &*it;
    };

    // The id first, so a bad fence still counts against duplicates.
    const json* id = property("id");
    if (!id) {
        if (auto it = feature.find("id"); it != feature.end() && !it->is_null()) id = &*it;
    }
    if (!id) return "has no id";
    auto idValue = idText(*id);
    if (!idValue) return "id is neither text nor a whole number";
    if (idValue->empty()) return "has an empty id";
    fence.id = std::move(*idValue);

    auto geometry = feature.find("geometry");
    if (geometry == feature.end() || !geometry->is_object()) return "has no geometry";
    auto type = geometry->find("type");
    if (type == geometry->end() || !type->is_string()) return "geometry has no type";
    if (*type != "Point") return "geometry is a " + type->get<std::string>() + ", not a Point";
    auto coordinates = geometry->find("coordinates");
    if (coordinates == geometry->end() || !coordinates->is_array() || coordinates->size() < 2 ||
        !(*coordinates)[0].is_number() || !(*coordinates)[1].is_number())
        return "Point coordinates are not [longitude, latitude]";
    fence.longitude = (*coordinates)[0].get<double>();
    fence.latitude = (*coordinates)[1].get<double>();
    if (auto problem = checkPlace(fence.latitude, fence.longitude); !problem.empty()) return problem;

    if (const json* name = property("name")) {
        if (!name->is_string()) return "name is not text";
        fence.name = name->get<std::string>();
    }
    std::optional<double> radius;
    if (const json* value = property("radius")) {
        if (!value->is_number()) return "radius " + value->dump() + " is not a number";
        radius = value->get<double>();
    }
    if (auto problem = collector.radius(radius, fence); !problem.empty()) return problem;

    if (const json* ids = property("content_ids")) {
        if (!ids->is_array()) return "content_ids is not an array";
        for (const auto& element : *ids) {
            if (!element.is_string()) return "content_ids holds something other than text";
            fence.content_ids.push_back(element.get<std::string>());
        }
    }
    return {};
}

ZoneFenceList readGeoJson(std::string_view text, const std::string& sourceName, const ZoneBuildOptions& options) {
    FenceCollector collector(sourceName, options);
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error& error) {
        collector.fail("", "is not valid JSON (at byte " + std::to_string(error.byte) + ")");
        return std::move(collector).finish();
    } catch (const json::exception& error) {  // a number out of range, for one
        collector.fail("", std::string("is not usable JSON: ") + error.what());
        return std::move(collector).finish();
    }
    if (!document.is_object()) {
        collector.fail("", "is JSON but not a GeoJSON FeatureCollection");
        return std::move(collector).finish();
    }
    auto type = document.find("type");
    auto features = document.find("features");
    if ((type != document.end() && *type != "FeatureCollection") || features == document.end() ||
        !features->is_array()) {
        collector.fail("", "is JSON but not a GeoJSON FeatureCollection with a \"features\" array");
        return std::move(collector).finish();
    }
    std::size_t index = 0;
    for (const auto& feature : *features) {
        ZoneFence fence;
        std::string problem = readFeature(feature, fence, collector);
        collector.add("features[" + std::to_string(index++) + "]", std::move(fence), problem);
        if (collector.failed()) break;
    }
    return std::move(collector).finish();
}

// One CSV record: its fields and the line it starts on.
struct CsvRecord {
    std::vector<std::string> fields;
    std::vector<bool> quotedField;
    std::size_t line = 0;
};

// RFC 4180 with the usual leniencies: CRLF or LF, quotes inside an unquoted field
// taken literally, spaces around unquoted fields dropped. A record may span lines
// inside quotes; `line` is the one it starts on.
class CsvReader {
public:
    explicit CsvReader(std::string_view text) : text_(text) {}

    // False at the end of the text. Sets `unterminated` when a quote is never closed.
    bool next(CsvRecord& record, bool& unterminated) {
        unterminated = false;
        record.fields.clear();
        record.quotedField.clear();
        while (pos_ < text_.size() && atLineEnd()) skipNewline();  // blank lines
        if (pos_ >= text_.size()) return false;
        record.line = line_;
        for (;;) {
            std::string field;
            bool quoted = false;
            if (!readField(field, quoted)) {
                unterminated = true;
                return true;
            }
            record.fields.push_back(std::move(field));
            record.quotedField.push_back(quoted);
            if (pos_ < text_.size() && text_[pos_] == ',') {
                ++pos_;
                continue;
            }
            skipNewline();
            return true;
        }
    }

    static void trim(std::string& text) {
        auto first = text.find_first_not_of(" \t");
        if (first == std::string::npos) {
            text.clear();
            return;
        }
        text.erase(text.find_last_not_of(" \t") + 1);
        text.erase(0, first);
    }

private:
    bool atLineEnd() const { return text_[pos_] == '\n' || text_[pos_] == '\r'; }
    bool atFieldEnd() const { return pos_ >= text_.size() || text_[pos_] == ',' || atLineEnd(); }

    // False when the field's quote is never closed.
    bool readField(std::string& field, bool& quoted) {
        std::size_t start = pos_;
        while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t')) ++pos_;
        quoted = pos_ < text_.size() && text_[pos_] == '"';
        if (!quoted) {
            pos_ = start;
            while (!atFieldEnd()) field += text_[pos_++];
            trim(field);
            return true;
        }
        ++pos_;
        for (;;) {
            if (pos_ >= text_.size()) return false;
            char c = text_[pos_++];
            if (c == '"') {
                if (pos_ >= text_.size() || text_[pos_] != '"') break;
                ++pos_;  // a doubled quote stands for one
            } else if (c == '\n') {
                ++line_;
            }
            field += c;
        }
        // Anything between the closing quote and the separator is kept, minus spaces.
        for (; !atFieldEnd(); ++pos_)
            if (text_[pos_] != ' ' && text_[pos_] != '\t') field += text_[pos_];
        return true;
    }

    void skipNewline() {
        if (pos_ < text_.size() && text_[pos_] == '\r') ++pos_;
        if (pos_ < text_.size() && text_[pos_] == '\n') ++pos_;
        ++line_;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
    std::size_t line_ = 1;
};

std::optional<double> parseNumber(const std::string& text) {
    double value = 0.0;
    const char* begin = text.data();
    const char* end = text.data() + text.size();
    if (begin != end && *begin == '+' && ++begin != end && *begin == '-') return std::nullopt;
    auto [stop, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::string lowercase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

ZoneFenceList readCsv(std::string_view text, const std::string& sourceName, const ZoneBuildOptions& options) {
    FenceCollector collector(sourceName, options);
    CsvReader reader(text);
    CsvRecord record;
    bool unterminated = false;
    const std::string expected = "not GeoJSON, nor CSV with a header naming the columns id,name,lat,lon,radius";
    if (!reader.next(record, unterminated) || unterminated) {
        collector.fail("", expected);
        return std::move(collector).finish();
    }

    enum Column { Id, Name, Lat, Lon, Radius, ContentIds, ColumnCount };
    static const std::map<std::string, Column> kHeaderNames = {
        {"id", Id},         {"_id", Id},         {"name", Name},     {"lat", Lat},
        {"latitude", Lat},  {"lon", Lon},        {"lng", Lon},       {"longitude", Lon},
        {"radius", Radius}, {"content_ids", ContentIds},
    };
    std::optional<std::size_t> columns[ColumnCount];
    for (std::size_t i = 0; i < record.fields.size(); ++i) {
        std::string name = lowercase(record.fields[i]);
        if (auto it = kHeaderNames.find(name); it != kHeaderNames.end() && !columns[it->second])
            columns[it->second] = i;
    }
    std::string missing;
    for (auto [column, name] : {std::pair{Id, "id"}, {Name, "name"}, {Lat, "lat"}, {Lon, "lon"}, {Radius, "radius"}}) {
        if (columns[column] || (column == Radius && options.defaultRadius)) continue;
        missing += missing.empty() ? name : std::string(", ") + name;
    }
    if (!missing.empty()) {
        collector.fail("", expected + " (line " + std::to_string(record.line) + " lacks " + missing + ")");
        return std::move(collector).finish();
    }
    const std::size_t width = record.fields.size();

    while (reader.next(record, unterminated)) {
        const std::string where = std::to_string(record.line);
        if (!unterminated && record.fields.size() == 1 && record.fields[0].empty() && !record.quotedField[0])
            continue;  // a line of spaces
        if (unterminated) {
            collector.fail(where, "a quoted field is never closed");
            break;
        }
        ZoneFence fence;
        auto read = [&]() -> std::string {
            if (record.fields.size() != width)
                return "has " + std::to_string(record.fields.size()) + " fields, the header has " +
                       std::to_string(width);
            fence.id = record.fields[*columns[Id]];
            if (fence.id.empty()) return "has no id";
            fence.name = record.fields[*columns[Name]];
            auto latitude = parseNumber(record.fields[*columns[Lat]]);
            auto longitude = parseNumber(record.fields[*columns[Lon]]);
            if (!latitude) return "lat " + jsonText(record.fields[*columns[Lat]]) + " is not a number";
            if (!longitude) return "lon " + jsonText(record.fields[*columns[Lon]]) + " is not a number";
            fence.latitude = *latitude;
            fence.longitude = *longitude;
            if (auto problem = checkPlace(fence.latitude, fence.longitude); !problem.empty()) return problem;
            std::optional<double> radius;
            if (columns[Radius] && !record.fields[*columns[Radius]].empty()) {
                const std::string& radiusText = record.fields[*columns[Radius]];
                radius = parseNumber(radiusText);
                if (!radius) return "radius " + jsonText(radiusText) + " is not a number";
            }
            if (auto problem = collector.radius(radius, fence); !problem.empty()) return problem;
            if (columns[ContentIds]) {
                std::stringstream list(record.fields[*columns[ContentIds]]);
                for (std::string item; std::getline(list, item, ';');) {
                    CsvReader::trim(item);
                    if (!item.empty()) fence.content_ids.push_back(std::move(item));
                }
            }
            return {};
        };
        std::string problem = read();
        collector.add(where, std::move(fence), problem);
        if (collector.failed()) break;
    }
    return std::move(collector).finish();
}

// ---------------------------------------------------------------- placing

constexpr double kDegree = std::numbers::pi / 180.0;
// WGS84 semi-major axis and first eccentricity squared.
constexpr double kEquatorialRadius = 6'378'137.0;
constexpr double kEccentricity2 = 6.69437999014e-3;
// Lower bounds of the metres in one degree: of latitude anywhere (the meridian's
// curvature radius at the equator), and of longitude at the equator.
constexpr double kMetresPerDegreeLatitude = 110'574.0;
constexpr double kMetresPerDegreeLongitude = 111'319.0;

// Meridian radius of curvature: the smallest radius of curvature of the ellipsoid at
// that latitude, and growing with |latitude|.
double meridianRadius(double latitudeDegrees) {
    double s = std::sin(latitudeDegrees * kDegree);
    double w = 1.0 - kEccentricity2 * s * s;
    return kEquatorialRadius * (1.0 - kEccentricity2) / (w * std::sqrt(w));
}

// Index k of the cell [k*interval, (k+1)*interval] holding `coordinate`, as the
// library's own cell function decides it (boundaries included).
long long cellIndex(double coordinate, double interval) {
    return std::llround(zoneCenterCoordinate(coordinate, interval) / interval - 0.5);
}

// Largest cosine of the angle between the centre and any point of the meridian
// segment at longitude offset `deltaLongitude`, latitudes [south, north] (radians).
double bestCosineOnMeridian(double sinLat, double cosLat, double deltaLongitude, double south, double north) {
    double a = sinLat;
    double b = cosLat * std::cos(deltaLongitude);
    // cos(angle) = a sin(phi) + b cos(phi): a sinusoid in phi, so the best point is
    // an end of the segment or its crest.
    auto at = [&](double phi) { return a * std::sin(phi) + b * std::cos(phi); };
    double best = std::max(at(south), at(north));
    double crest = std::atan2(a, b);
    if (crest >= south && crest <= north) best = std::max(best, at(crest));
    return best;
}

// Angle (radians, on a unit sphere) from the centre to the nearest point of the
// rectangle of latitudes [south, north] and longitudes [west, east] (degrees).
double angleToRectangle(double latitude, double longitude, double south, double north, double west, double east) {
    south = std::max(south, -90.0);
    north = std::min(north, 90.0);
    double offset = std::fmod(longitude - west, 360.0);
    if (offset < 0) offset += 360.0;
    if (offset <= east - west) {
        // The centre's own meridian crosses the rectangle: the nearest point lies on it.
        double nearest = std::clamp(latitude, south, north);
        return std::abs(latitude - nearest) * kDegree;
    }
    // Otherwise the nearest point is on a side meridian (the nearest points of the
    // top and bottom edges are their corners, which the sides include).
    double phi = latitude * kDegree;
    double sinLat = std::sin(phi), cosLat = std::cos(phi);
    double best = std::max(bestCosineOnMeridian(sinLat, cosLat, (west - longitude) * kDegree, south * kDegree,
                                                 north * kDegree),
                           bestCosineOnMeridian(sinLat, cosLat, (east - longitude) * kDegree, south * kDegree,
                                                north * kDegree));
    return std::acos(std::clamp(best, -1.0, 1.0));
}

bool usableInterval(double interval) {
    return std::isfinite(interval) && interval >= kMinZoneInterval && interval <= kMaxZoneInterval;
}

// The cells as (latitude index, longitude index) pairs, sorted.
std::vector<std::pair<long long, long long>> cellsForCircle(double latitude, double longitude, double radius,
                                                            double interval) {
    std::vector<std::pair<long long, long long>> cells;
    if (!usableInterval(interval) || !checkPlace(latitude, longitude).empty() || !isFenceRadius(radius))
        return cells;

    // Every point within `radius` of the centre, and every point of the shortest path
    // to it, lies in this band of latitudes.
    double band = radius / kMetresPerDegreeLatitude;
    double south = std::max(latitude - band, -90.0);
    double north = std::min(latitude + band, 90.0);

    // Along such a path a metre never spans more longitude than on the band's most
    // poleward parallel, whose degree is at least 111,319 m times its cosine.
    double poleward = std::max(std::abs(south), std::abs(north));
    double parallelCosine = std::cos(poleward * kDegree);
    double spread = 360.0;
    if (poleward < 90.0 && parallelCosine > 1e-12) spread = radius / (kMetresPerDegreeLongitude * parallelCosine);
    std::vector<std::pair<double, double>> longitudeRanges;
    if (spread >= 180.0) {
        longitudeRanges.emplace_back(-180.0, 180.0);
    } else {
        double west = longitude - spread, east = longitude + spread;
        longitudeRanges.emplace_back(std::max(west, -180.0), std::min(east, 180.0));
        if (east > 180.0) longitudeRanges.emplace_back(-180.0, east - 360.0);
        if (west < -180.0) longitudeRanges.emplace_back(west + 360.0, 180.0);
    }

    // For points within reach the WGS84 metric is nowhere shorter than that of a
    // sphere whose radius is the smallest meridian radius in the band (the meridian
    // radius never exceeds the prime-vertical one, and grows poleward). Distances on
    // that sphere are therefore a lower bound of the geodesic ones.
    double smallestLatitude = (south <= 0.0 && north >= 0.0) ? 0.0 : std::min(std::abs(south), std::abs(north));
    double sphereRadius = meridianRadius(smallestLatitude);
    // Room for rounding in the cell boundaries and in the trigonometry.
    double reach = radius * (1.0 + 1e-9) + 1e-3;

    // One cell of margin on each side: the cell function's boundaries are only as
    // exact as its floating-point arithmetic; the distance test removes the extras.
    const long long firstRow = cellIndex(-90.0, interval), lastRow = cellIndex(90.0, interval);
    const long long firstColumn = cellIndex(-180.0, interval), lastColumn = cellIndex(180.0, interval);
    std::set<long long> columns;
    for (auto [west, east] : longitudeRanges) {
        for (long long k = std::max(cellIndex(west, interval) - 1, firstColumn);
             k <= std::min(cellIndex(east, interval) + 1, lastColumn); ++k)
            columns.insert(k);
    }
    for (long long row = std::max(cellIndex(south, interval) - 1, firstRow);
         row <= std::min(cellIndex(north, interval) + 1, lastRow); ++row) {
        double rowSouth = static_cast<double>(row) * interval, rowNorth = rowSouth + interval;
        for (long long column : columns) {
            double cellWest = static_cast<double>(column) * interval;
            double angle = angleToRectangle(latitude, longitude, rowSouth, rowNorth, cellWest, cellWest + interval);
            if (angle * sphereRadius <= reach) cells.emplace_back(row, column);
        }
    }
    return cells;
}

std::string cellName(std::pair<long long, long long> cell, double interval) {
    // The cell's centre lies half a cell from any boundary, so the library's naming
    // puts it in this very cell.
    return getZoneName((static_cast<double>(cell.first) + 0.5) * interval,
                       (static_cast<double>(cell.second) + 0.5) * interval, interval);
}

// Keys in the order a person reading a zone file expects them.
ordered_json fenceJson(const ZoneFence& fence) {
    return {{"_id", fence.id},
            {"name", fence.name},
            {"location", {{"type", "Point"}, {"coordinates", {fence.longitude, fence.latitude}}}},
            {"radius", fence.radius},
            {"content_ids", fence.content_ids}};
}

// True when `path` already holds exactly `contents`.
bool holds(const std::string& path, const std::string& contents) {
    int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    std::string existing(contents.size() + 1, '\0');  // one byte more, to notice a longer file
    std::size_t got = 0;
    while (got < existing.size()) {
        ssize_t n = ::read(file, existing.data() + got, existing.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    ::close(file);
    return got == contents.size() && existing.compare(0, got, contents) == 0;
}

// Replaces `path` so that readers see the old file or the new one, never a part.
// No fsync: a build is simply run again after a crash, and syncing each of tens of
// thousands of files would make it take minutes.
std::string writeWhole(const std::string& path, const std::string& contents) {
    auto slash = path.find_last_of('/');
    std::string temporary = path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".tmp-" +
                            std::to_string(::getpid());
    auto fail = [&](const char* what, int error) {
        ::unlink(temporary.c_str());
        return std::string("cannot ") + what + " " + temporary + ": " + std::strerror(error);
    };
    int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0) return std::string("cannot create ") + temporary + ": " + std::strerror(errno);
    std::size_t done = 0;
    while (done < contents.size()) {
        ssize_t n = ::write(file, contents.data() + done, contents.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            int error = errno;
            ::close(file);
            return fail("write", error);
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(file) != 0) return fail("write", errno);
    if (::rename(temporary.c_str(), path.c_str()) != 0) return fail("rename", errno);
    return {};
}

bool isZoneFileName(const std::string& name) {
    static const std::regex kZoneName("zone_-?[0-9]+_-?[0-9]+\\.json");
    return std::regex_match(name, kZoneName);
}

// Temporary files of a build that was killed before it could rename them.
bool isLeftoverName(const std::string& name) {
    static const std::regex kLeftover("\\.zone_-?[0-9]+_-?[0-9]+\\.json\\.tmp-[0-9]+");
    return std::regex_match(name, kLeftover);
}

ZoneBuildResult failure(std::string error) {
    ZoneBuildResult result;
    result.error = std::move(error);
    return result;
}

} // namespace

ZoneFenceList readZoneFences(std::string_view text, const std::string& sourceName, const ZoneBuildOptions& options) {
    try {
        std::string_view body = text;
        if (body.substr(0, 3) == "\xef\xbb\xbf") body.remove_prefix(3);
        auto first = body.find_first_not_of(" \t\r\n");
        if (first == std::string_view::npos) {
            ZoneFenceList empty;
            empty.error = sourceName + ": is empty";
            return empty;
        }
        if (body[first] == '{' || body[first] == '[') return readGeoJson(body, sourceName, options);
        return readCsv(body, sourceName, options);
    } catch (const std::exception& error) {
        ZoneFenceList failed;
        failed.error = sourceName + ": " + error.what();
        return failed;
    }
}

std::vector<std::string> zoneNamesForCircle(double latitude, double longitude, double radius, double interval) {
    std::vector<std::string> names;
    for (auto cell : cellsForCircle(latitude, longitude, radius, interval)) names.push_back(cellName(cell, interval));
    std::sort(names.begin(), names.end());
    return names;
}

std::map<std::string, std::vector<ZoneFence>> assignToCells(const std::vector<ZoneFence>& fences, double interval) {
    std::map<std::pair<long long, long long>, std::vector<const ZoneFence*>> byCell;
    for (const auto& fence : fences)
        for (auto cell : cellsForCircle(fence.latitude, fence.longitude, fence.radius, interval))
            byCell[cell].push_back(&fence);
    std::map<std::string, std::vector<ZoneFence>> named;
    for (const auto& [cell, members] : byCell) {
        auto& list = named[cellName(cell, interval)];
        list.reserve(members.size());
        for (const ZoneFence* fence : members) list.push_back(*fence);
    }
    return named;
}

std::string zoneFileText(const std::vector<ZoneFence>& fences) {
    ordered_json list = ordered_json::array();
    for (const auto& fence : fences) list.push_back(fenceJson(fence));
    return ordered_json{{"fences", std::move(list)}}.dump() + "\n";
}

ZoneBuildResult buildZones(const std::string& inputPath, const std::string& outDir, const ZoneBuildOptions& options) {
    try {
        if (!usableInterval(options.interval))
            return failure("zone interval " + numberText(options.interval) + " is outside [" +
                           numberText(kMinZoneInterval) + ", " + numberText(kMaxZoneInterval) + "] degrees");
        if (options.defaultRadius && !isFenceRadius(*options.defaultRadius))
            return failure("default radius " + numberText(*options.defaultRadius) +
                           " is not a positive number of metres");

        std::ifstream in(inputPath, std::ios::binary);
        if (!in) return failure("cannot read " + inputPath + ": " + std::strerror(errno));
        std::ostringstream buffer;
        buffer << in.rdbuf();
        if (in.bad()) return failure("cannot read " + inputPath);
        const std::string text = std::move(buffer).str();

        ZoneFenceList read = readZoneFences(text, inputPath, options);
        ZoneBuildResult result;
        result.warnings = std::move(read.warnings);
        if (!read.ok) {
            result.error = std::move(read.error);
            return result;
        }

        // Each fence is encoded once, then joined into every file that lists it.
        std::vector<std::string> encoded;
        encoded.reserve(read.fences.size());
        std::map<std::pair<long long, long long>, std::vector<std::size_t>> byCell;
        for (std::size_t i = 0; i < read.fences.size(); ++i) {
            const ZoneFence& fence = read.fences[i];
            encoded.push_back(fenceJson(fence).dump());
            auto cells = cellsForCircle(fence.latitude, fence.longitude, fence.radius, options.interval);
            if (cells.size() > 64)
                result.warnings.push_back(inputPath + ": fence " + jsonText(fence.id) + " (radius " +
                                          numberText(fence.radius) + " m) reaches " + std::to_string(cells.size()) +
                                          " cells");
            for (auto cell : cells) byCell[cell].push_back(i);
        }

        const std::filesystem::path directory(outDir);
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        if (error || !std::filesystem::is_directory(directory, error))
            return failure("cannot create directory " + outDir + (error ? ": " + error.message() : ""));

        std::set<std::string> written;
        std::string contents;
        for (const auto& [cell, members] : byCell) {
            contents = "{\"fences\":[";
            for (std::size_t n = 0; n < members.size(); ++n) {
                if (n) contents += ',';
                contents += encoded[members[n]];
            }
            contents += "]}\n";
            std::string name = cellName(cell, options.interval);
            std::string path = (directory / name).string();
            // An unchanged file keeps its modification time, and with it the
            // Last-Modified that lets devices revalidate it cheaply.
            if (holds(path, contents)) {
                ++result.unchanged;
            } else if (auto problem = writeWhole(path, contents); !problem.empty()) {
                result.error = problem;
                return result;
            }
            written.insert(std::move(name));
            ++result.cells;
            result.fenceEntries += members.size();
        }

        // Listed first and removed after: removing while listing may skip entries.
        std::vector<std::filesystem::path> stale, leftovers;
        for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
            std::string name = entry.path().filename().string();
            if (isZoneFileName(name) && !written.count(name)) stale.push_back(entry.path());
            if (isLeftoverName(name)) leftovers.push_back(entry.path());
        }
        if (error) result.warnings.push_back("cannot list " + outDir + " for stale zone files: " + error.message());
        for (const auto& path : stale) {
            std::error_code removeError;
            if (std::filesystem::remove(path, removeError))
                ++result.staleRemoved;
            else
                result.warnings.push_back("cannot remove stale " + path.string() + ": " + removeError.message());
        }
        for (const auto& path : leftovers) std::filesystem::remove(path, error);

        result.fences = read.fences.size();
        result.ok = true;
        return result;
    } catch (const std::exception& error) {
        return failure(inputPath + ": " + error.what());
    }
}

} // namespace bvgeo
