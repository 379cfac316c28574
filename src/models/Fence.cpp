#include "models/Fence.hpp"

#include "datastore/BV1Database.hpp"
#include "models/FenceListBuilder.hpp"
#include "models/GeometryReader.hpp"
#include "platform/NumberText.hpp"


#include <nlohmann/json.hpp>

#include <mutex>
#include <tuple>
#include <unordered_map>

namespace bvgeo {

namespace {

// Coordinates live in TEXT columns as the number's own text: whole numbers without
// a fractional part ("100"), others in their shortest exact form ("-23.5").
std::string coordinateText(double value) {
    std::string text = doubleText(value);
    if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) text.resize(text.size() - 2);
    return text;
}

} // namespace

bool operator==(const Fence& a, const Fence& b) {
    if (std::tie(a.id, a.name, a.latitude, a.longitude, a.radius, a.content_ids, a.current_zone) !=
        std::tie(b.id, b.name, b.latitude, b.longitude, b.radius, b.content_ids, b.current_zone))
        return false;
    if (!a.geometry || !b.geometry) return a.geometry == b.geometry;
    return *a.geometry == *b.geometry;
}

std::optional<Fence> Fence::fenceFromJson(const nlohmann::json& object) {
    Fence fence;
    if (!object.is_object()) return std::nullopt;
    if (auto it = object.find("_id"); it != object.end() && it->is_string()) fence.id = it->get<std::string>();
    if (auto it = object.find("name"); it != object.end() && it->is_string()) fence.name = it->get<std::string>();
    if (auto location = object.find("location"); location != object.end() && location->is_object()) {
        if (auto type = location->find("type"); type != location->end() && type->is_string() && *type != "Point")
            return std::nullopt;
        if (auto coordinates = location->find("coordinates");
            coordinates != location->end() && coordinates->is_array()) {
            if (coordinates->size() < 2 || !(*coordinates)[0].is_number() || !(*coordinates)[1].is_number())
                return std::nullopt;
            fence.longitude = (*coordinates)[0].get<double>();
            fence.latitude = (*coordinates)[1].get<double>();
        }
    }
    if (auto it = object.find("radius"); it != object.end() && it->is_number()) fence.radius = it->get<double>();
    if (auto it = object.find("content_ids"); it != object.end() && it->is_array()) {
        for (const auto& element : *it)
            if (element.is_string()) fence.content_ids.push_back(element.get<std::string>());
    }
    return fence;
}

namespace {

constexpr const char* kInsertFence =
    "INSERT OR REPLACE INTO fence (id , name , latitude , longitude, radius, content_ids, current_zone) "
    "VALUES (?, ?, ?, ?, ?, ?, ?)";
constexpr std::size_t kValuesPerFence = 7;

// Rows per statement when a whole list is stored. One statement per fence would
// carry its own copy of the statement text; a statement of many rows shares one.
// 128 rows keep the parameters below SQLite's oldest limit of 999.
constexpr std::size_t kFencesPerInsert = 128;

void appendFenceValues(SqlValues& values, const Fence& fence) {
    values.emplace_back(fence.id);
    values.emplace_back(fence.name);
    values.emplace_back(coordinateText(fence.latitude));
    values.emplace_back(coordinateText(fence.longitude));
    values.emplace_back(fence.radius);
    values.emplace_back(Fence::serializeArray(fence.content_ids));
    values.emplace_back(std::int64_t{fence.current_zone ? 1 : 0});
}

SqlValues fenceValues(const Fence& fence) {
    SqlValues values;
    values.reserve(kValuesPerFence);
    appendFenceValues(values, fence);
    return values;
}

// INSERT OR REPLACE of several rows takes them in order, as that many single
// inserts would: of two fences with one id the later stays.
std::string insertFences(std::size_t count) {
    std::string sql = kInsertFence;
    for (std::size_t i = 1; i < count; ++i) sql += ", (?, ?, ?, ?, ?, ?, ?)";
    return sql;
}

constexpr const char* kCreateGeometryTable =
    "CREATE TABLE IF NOT EXISTS fence_geometry (id TEXT PRIMARY KEY, latitude TEXT, longitude TEXT, radius REAL, "
    "geometry TEXT, digest INTEGER)";

bool geometryTableExists(const DatabaseHandle& database) {
    bool exists = false;
    database.executeQuery("SELECT name FROM sqlite_master WHERE type = 'table' AND name = 'fence_geometry'", {},
                          [&](const DatabaseRow&) { exists = true; });
    return exists;
}

struct StoredGeometry {
    double latitude, longitude, radius;
    std::int64_t digest; // of the geometry's text; 0 for a circle
    bool isCircle;
};

// FNV-1a of the stored text, so a list read again (every 304 once the cache has
// expired) reuses the geometries already built instead of decoding them anew.
std::int64_t digestOf(const std::string& text) {
    std::uint64_t hash = 1469598103934665603ull;
    for (unsigned char c : text) hash = (hash ^ c) * 1099511628211ull;
    return static_cast<std::int64_t>(hash | 1); // never 0
}

// The geometries of the list last stored or read, by fence id with their digest.
struct GeometryMemo {
    std::mutex mutex;
    std::unordered_map<std::string, std::pair<std::int64_t, std::shared_ptr<const FenceGeometry>>> byId;
};

GeometryMemo& geometryMemo() {
    static GeometryMemo memo;
    return memo;
}

// The geometry table by fence id, without the geometries' text; empty when there is no table.
std::unordered_map<std::string, StoredGeometry> storedGeometries(const DatabaseHandle& database) {
    std::unordered_map<std::string, StoredGeometry> rows;
    if (!geometryTableExists(database)) return rows;
    database.executeQuery("SELECT id, latitude, longitude, radius, digest, geometry IS NULL AS circle FROM fence_geometry",
                          {}, [&](const DatabaseRow& row) {
                              rows[row.stringForColumn("id")] = {row.doubleForColumn("latitude"),
                                                                 row.doubleForColumn("longitude"),
                                                                 row.doubleForColumn("radius"),
                                                                 row.int64ForColumn("digest"),
                                                                 row.int64ForColumn("circle") == 1};
                          });
    return rows;
}

// A geometry row belongs to a fence row only when it was written with that very
// circle (both rows hold the coordinates as the same text, read back alike).
const StoredGeometry* geometryOf(const std::unordered_map<std::string, StoredGeometry>& rows, const Fence& fence) {
    auto it = rows.find(fence.id);
    if (it == rows.end() || it->second.latitude != fence.latitude || it->second.longitude != fence.longitude ||
        it->second.radius != fence.radius)
        return nullptr;
    return &it->second;
}

const char* clearStatement(bool keepFences) {
    return keepFences ? "UPDATE fence SET current_zone = 0" : "DELETE FROM fence";
}

} // namespace

bool Fence::save(const Fence& fence) { return BV1Database::executeUpdate(kInsertFence, fenceValues(fence)); }

// The clearing and every insert form one transaction: a zone file is stored whole
// or not at all, and a large one is written in one commit.
bool Fence::saveFenceList(const std::vector<std::shared_ptr<Fence>>& fences, bool keepEarlierZones) {
    return saveFenceList(fences, keepEarlierZones, false);
}

bool Fence::saveFenceList(const std::vector<std::shared_ptr<Fence>>& fences, bool keepEarlierZones,
                          bool withGeometries) {
    std::vector<const Fence*> present;
    present.reserve(fences.size());
    for (const auto& fence : fences)
        if (fence) present.push_back(fence.get());

    static const std::string kInsertMany = insertFences(kFencesPerInsert);
    const std::size_t full = present.size() / kFencesPerInsert;
    std::vector<SqlStatement> statements;
    statements.reserve(1 + full + present.size() % kFencesPerInsert + (withGeometries ? 2 + present.size() : 0));
    statements.push_back({clearStatement(keepEarlierZones), {}});
    std::size_t next = 0;
    for (std::size_t chunk = 0; chunk < full; ++chunk) {
        SqlStatement& statement = statements.emplace_back(SqlStatement{kInsertMany, {}});
        statement.args.reserve(kFencesPerInsert * kValuesPerFence);
        for (std::size_t i = 0; i < kFencesPerInsert; ++i) appendFenceValues(statement.args, *present[next++]);
    }
    // The rest one by one: a statement per remainder size would fill the statement cache.
    for (; next < present.size(); ++next) statements.push_back({kInsertFence, fenceValues(*present[next])});
    if (withGeometries) {
        // Only the current list needs its geometries: earlier zones' rows (kept in
        // debug mode) are never read as current, so their geometries go too.
        statements.push_back({kCreateGeometryTable, {}});
        statements.push_back({"DELETE FROM fence_geometry", {}});
        std::unordered_map<std::string, std::pair<std::int64_t, std::shared_ptr<const FenceGeometry>>> memo;
        for (const Fence* fence : present) {
            SqlValue text = nullptr, digest = nullptr;
            if (fence->geometry) {
                std::string json = fence->geometry->geoJson();
                digest = digestOf(json);
                memo[fence->id] = {std::get<std::int64_t>(digest), fence->geometry};
                text = std::move(json);
            }
            statements.push_back({"INSERT OR REPLACE INTO fence_geometry (id, latitude, longitude, radius, geometry, "
                                  "digest) VALUES (?, ?, ?, ?, ?, ?)",
                                  {fence->id, coordinateText(fence->latitude), coordinateText(fence->longitude),
                                   fence->radius, std::move(text), std::move(digest)}});
        }
        if (!BV1Database::executeBatch(statements)) return false;
        std::lock_guard lock(geometryMemo().mutex);
        geometryMemo().byId = std::move(memo);
        return true;
    }
    return BV1Database::executeBatch(statements);
}

bool Fence::clearFenceCache(bool keepFences) { return BV1Database::executeStatements(clearStatement(keepFences)); }

std::vector<std::shared_ptr<Fence>> Fence::getFences(bool onlyCurrentZone) { return getFences(onlyCurrentZone, false); }

std::vector<std::shared_ptr<Fence>> Fence::getFences(bool onlyCurrentZone, bool withGeometries) {
    std::string sql = "SELECT * FROM fence";
    if (onlyCurrentZone) sql += " WHERE current_zone = 1";
    BV1Database database;
    std::unordered_map<std::string, StoredGeometry> geometries;
    if (withGeometries) geometries = storedGeometries(database.getDatabase());
    std::vector<std::pair<std::size_t, std::int64_t>> wanted; // (place in the list, digest) of polygon fences
    FenceListBuilder list;
    database.getDatabase().executeQuery(sql, {}, [&](const DatabaseRow& row) {
        Fence fence;
        fence.id = row.stringForColumn("id");
        fence.name = row.stringForColumn("name");
        fence.latitude = row.doubleForColumn("latitude");
        fence.longitude = row.doubleForColumn("longitude");
        fence.radius = row.doubleForColumn("radius");
        fence.content_ids = deserializeArray(row.stringForColumn("content_ids"));
        fence.current_zone = row.int64ForColumn("current_zone") == 1;
        if (const StoredGeometry* stored = geometries.empty() ? nullptr : geometryOf(geometries, fence);
            stored && !stored->isCircle)
            wanted.emplace_back(list.size(), stored->digest);
        list.add(std::move(fence));
    });
    auto fences = list.finish();
    if (wanted.empty()) return fences;
    // Geometries seen before come from memory; the others are decoded from their text
    // (checked when they were received).
    GeometryMemo& memo = geometryMemo();
    std::unordered_map<std::string, std::pair<std::int64_t, std::shared_ptr<const FenceGeometry>>> seen;
    {
        std::lock_guard lock(memo.mutex);
        seen = memo.byId;
    }
    std::unordered_map<std::string, std::pair<std::int64_t, std::shared_ptr<const FenceGeometry>>> now;
    for (const auto& entry : wanted) {
        const std::int64_t digest = entry.second; // a plain name: lambdas below capture it
        Fence& fence = *fences[entry.first];
        if (auto it = seen.find(fence.id); it != seen.end() && it->second.first == digest) {
            fence.geometry = it->second.second;
        } else {
            database.getDatabase().executeQuery("SELECT geometry FROM fence_geometry WHERE id = ?", {fence.id},
                                                [&](const DatabaseRow& row) {
                                                    const std::string text = row.stringForColumn("geometry");
                                                    if (digestOf(text) == digest)
                                                        fence.geometry = readFenceGeometry(text).geometry;
                                                });
        }
        if (fence.geometry) now[fence.id] = {digest, fence.geometry};
    }
    std::lock_guard lock(memo.mutex);
    memo.byId = std::move(now);
    return fences;
}

bool Fence::geometriesStoredForCurrentFences() {
    BV1Database database;
    const auto geometries = storedGeometries(database.getDatabase());
    bool complete = true;
    database.getDatabase().executeQuery(
        "SELECT id, latitude, longitude, radius FROM fence WHERE current_zone = 1", {}, [&](const DatabaseRow& row) {
            Fence fence;
            fence.id = row.stringForColumn("id");
            fence.latitude = row.doubleForColumn("latitude");
            fence.longitude = row.doubleForColumn("longitude");
            fence.radius = row.doubleForColumn("radius");
            if (!geometryOf(geometries, fence)) complete = false;
        });
    return complete;
}

std::string Fence::serializeArray(const std::vector<std::string>& values) {
    std::string text;
    for (const auto& value : values) {
        if (text.empty())
            text = value;
        else
            text += ", " + value;
    }
    return text;
}

std::vector<std::string> Fence::deserializeArray(const std::string& text) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (std::size_t at; (at = text.find(", ", start)) != std::string::npos; start = at + 2)
        pieces.push_back(text.substr(start, at - start));
    pieces.push_back(text.substr(start));
    return pieces;
}

} // namespace bvgeo
