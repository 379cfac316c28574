#include "zone/ZoneBuilderPlaces.hpp"

#include "capi/Utf8.hpp"
#include "track/CsvRecordReader.hpp"
#include "zone/ZoneBuilderChecks.hpp"
#include "zone/ZoneBuilderClip.hpp"

#include "models/GeometryReader.hpp"

#include "platform/TextTrim.hpp"

#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdio>
#include <charconv>
#include <cmath>
#include <map>
#include <optional>
#include <sstream>
#include <unordered_map>

namespace bvgeo {

namespace {

using nlohmann::json;

// Collects fences from either reader and applies the rules both share: the problem
// policy, and ids that must be unique across the input.
class FenceCollector {
public:
    FenceCollector(const std::string& sourceName, const ZoneBuildOptions& options)
        : source_(sourceName), options_(options) {}

    // `where` is "features[3]" or "17" (a line number); `problem` empty means the fence is good.
    void add(const std::string& where, Fence fence, std::string problem, PolygonRings shape = {}) {
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
        result_.shapes.push_back(std::move(shape));
    }

    void fail(const std::string& where, const std::string& problem) {
        if (failed()) return;
        result_.error = (where.empty() ? source_ : label(where)) + ": " + problem;
    }
    bool failed() const { return !result_.error.empty(); }

    // The radius the fence gets, or a problem when it has none usable.
    std::string radius(std::optional<double> given, Fence& fence) const {
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
        if (!result_.ok) {
            result_.fences.clear();
            result_.shapes.clear();
        }
        return std::move(result_);
    }

private:
    static std::string checkText(const Fence& fence) {
        if (!capi::isValidUtf8(fence.id)) return "id is not UTF-8 text";
        if (!capi::isValidUtf8(fence.name)) return "name is not UTF-8 text";
        for (const auto& id : fence.content_ids)
            if (!capi::isValidUtf8(id)) return "content_ids are not UTF-8 text";
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

// A name as GBFS 3 writes it, a list of {"text", "language"}: the first text.
const json* nameText(const json* name) {
    if (name && name->is_array() && !name->empty() && (*name)[0].is_object()) {
        auto text = (*name)[0].find("text");
        if (text != (*name)[0].end()) return &*text;
    }
    return name;
}

// A polygon's rings, checked as the library will check them (after moving a ring
// that crosses the antimeridian into one piece of longitudes).
std::string readShape(const json& geometry, PolygonRings& shape) {
    if (auto problem = readPolygonRings(geometry.dump(), shape); !problem.empty()) return "geometry " + problem;
    PolygonRings check = shape;
    if (unwrapAntimeridian(shape)) {
        check = shape;
        for (std::size_t i = 0; i < check.xy.size(); i += 2) check.xy[i] -= 180.0; // into range, for the checks only
    }
    if (auto made = FenceGeometry::make(std::move(check)); !made.geometry) return "geometry " + made.problem;
    return {};
}

std::string readFeature(const json& feature, std::size_t index, Fence& fence, PolygonRings& shape,
                        FenceCollector& collector, const ZoneBuildOptions& options) {
    if (!feature.is_object()) return "is not a Feature object";
    const json* properties = nullptr;
    if (auto it = feature.find("properties"); it != feature.end() && it->is_object()) properties = &*it;
    auto property = [&](const std::string& key) -> const json* {
        if (!properties) return nullptr;
        auto it = properties->find(key);
        return it == properties->end() || it->is_null() ? nullptr : &*it;
    };
    auto geometry = feature.find("geometry");
    const bool polygon = geometry != feature.end() && geometry->is_object() && geometry->contains("type") &&
                         ((*geometry)["type"] == "Polygon" || (*geometry)["type"] == "MultiPolygon");
    const bool point = geometry != feature.end() && geometry->is_object() && geometry->contains("type") &&
                       (*geometry)["type"] == "Point";

    // The id first, so a bad fence still counts against duplicates.
    const json* id = options.idProperty.empty() ? property("id") : property(options.idProperty);
    if (!id && options.idProperty.empty()) {
        if (auto it = feature.find("id"); it != feature.end() && !it->is_null()) id = &*it;
    }
    const json indexId = std::to_string(index);
    // Points keep their rule (an id or nothing); other features (GBFS zones have no
    // ids) are named by their place in the file.
    if (options.indexIds || (!id && !point)) id = &indexId;
    if (!id) return "has no id";
    auto idValue = idText(*id);
    if (!idValue) return "id is neither text nor a whole number";
    if (idValue->empty()) return "has an empty id";
    fence.id = std::move(*idValue);

    if (geometry == feature.end() || !geometry->is_object()) return "has no geometry";
    auto type = geometry->find("type");
    if (type == geometry->end() || !type->is_string()) return "geometry has no type";
    const auto readName = [&]() -> std::string {
        if (const json* name = nameText(property(options.nameProperty.empty() ? "name" : options.nameProperty))) {
            if (!name->is_string()) return "name is not text";
            fence.name = name->get<std::string>();
        }
        return {};
    };
    const auto readContentIds = [&]() -> std::string {
        if (const json* ids = property("content_ids")) {
            if (!ids->is_array()) return "content_ids is not an array";
            for (const auto& element : *ids) {
                if (!element.is_string()) return "content_ids holds something other than text";
                fence.content_ids.push_back(element.get<std::string>());
            }
        }
        return {};
    };
    if (polygon) {
        if (auto problem = readName(); !problem.empty()) return problem;
        if (auto problem = readContentIds(); !problem.empty()) return problem;
        return readShape(*geometry, shape);
    }
    if (*type != "Point")
        return "geometry is a " + type->get<std::string>() + ", not a Point, Polygon or MultiPolygon";
    auto coordinates = geometry->find("coordinates");
    if (coordinates == geometry->end() || !coordinates->is_array() || coordinates->size() < 2 ||
        !(*coordinates)[0].is_number() || !(*coordinates)[1].is_number())
        return "Point coordinates are not [longitude, latitude]";
    fence.longitude = (*coordinates)[0].get<double>();
    fence.latitude = (*coordinates)[1].get<double>();
    if (auto problem = checkPlace(fence.latitude, fence.longitude); !problem.empty()) return problem;
    if (auto problem = readName(); !problem.empty()) return problem;
    std::optional<double> radius;
    if (const json* value = property("radius")) {
        if (!value->is_number()) return "radius " + value->dump() + " is not a number";
        radius = value->get<double>();
    }
    if (auto problem = collector.radius(radius, fence); !problem.empty()) return problem;
    return readContentIds();
}

// GBFS publishes geofencing zones from version 2.1 on; 3.x keeps their shape.
bool gbfsVersionTaken(const std::string& version) {
    int major = 0, minor = 0;
    if (std::sscanf(version.c_str(), "%d.%d", &major, &minor) != 2) return false;
    return (major == 2 && minor >= 1) || major == 3;
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
    const json* collection = &document;
    if (auto data = document.find("data"); data != document.end() && data->is_object() &&
                                           data->contains("geofencing_zones")) {
        auto version = document.find("version");
        const std::string text = version != document.end() && version->is_string() ? version->get<std::string>() : "";
        if (!gbfsVersionTaken(text)) {
            collector.fail("", "is a GBFS file of version " + (text.empty() ? std::string("(none)") : jsonText(text)) +
                                   "; geofencing_zones.json of versions 2.1 to 3.x are read");
            return std::move(collector).finish();
        }
        collection = &(*data)["geofencing_zones"];
        if (!collection->is_object()) {
            collector.fail("", "is a GBFS file whose geofencing_zones is not a FeatureCollection");
            return std::move(collector).finish();
        }
    }
    auto type = collection->find("type");
    auto features = collection->find("features");
    if ((type != collection->end() && *type != "FeatureCollection") || features == collection->end() ||
        !features->is_array()) {
        collector.fail("", "is JSON but not a GeoJSON FeatureCollection with a \"features\" array");
        return std::move(collector).finish();
    }
    std::size_t index = 0;
    for (const auto& feature : *features) {
        Fence fence;
        PolygonRings shape;
        std::string problem = readFeature(feature, index, fence, shape, collector, options);
        collector.add("features[" + std::to_string(index++) + "]", std::move(fence), problem, std::move(shape));
        if (collector.failed()) break;
    }
    return std::move(collector).finish();
}

// RFC 4180 records, which may span lines inside quotes; text after a closing quote
// is kept rather than refused.
constexpr CsvRecordReader::Dialect kPlacesDialect{.multiLine = true, .keepTextAfterQuote = true};

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
    CsvRecordReader reader(text, kPlacesDialect);
    CsvRecordReader::Record record;
    using Status = CsvRecordReader::Status;
    Status status = reader.next(record);
    const std::string expected = "not GeoJSON, nor CSV with a header naming the columns id,name,lat,lon,radius";
    if (status != Status::Record) {
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

    while ((status = reader.next(record)) != Status::End) {
        const std::string where = std::to_string(record.line);
        const bool unterminated = status == Status::Malformed;
        if (!unterminated && record.fields.size() == 1 && record.fields[0].empty() && !record.quoted[0])
            continue;  // a line of spaces
        if (unterminated) {
            collector.fail(where, "a quoted field is never closed");
            break;
        }
        Fence fence;
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
                    const auto trimmed = trim(item, kSpacesAndTabs);
                    if (!trimmed.empty()) fence.content_ids.emplace_back(trimmed);
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

} // namespace bvgeo
