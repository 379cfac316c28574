#include "models/DebugLocation.hpp"

#include "datastore/BV1Database.hpp"

#include <bvgeo/platform/Platform.hpp>

namespace bvgeo {

bool DebugLocation::saveDebugLocation(double latitude, double longitude, const std::string& type) {
    static const std::string kInsert =
        "INSERT INTO locations (latitude, longitude, type, timestamp) VALUES (?, ?, ?, ?)";
    return BV1Database::executeUpdate(kInsert, {latitude, longitude, type, platform().clock->now()});
}

std::vector<std::shared_ptr<DebugLocation>> DebugLocation::getDebugLocations() {
    std::vector<std::shared_ptr<DebugLocation>> history;
    BV1Database database;
    database.getDatabase().executeQuery(
        "SELECT latitude, longitude, type, timestamp FROM locations ORDER BY id", {}, [&](const DatabaseRow& row) {
            history.push_back(std::make_shared<DebugLocation>(row.doubleForColumn("latitude"),
                                                              row.doubleForColumn("longitude"),
                                                              row.int64ForColumn("timestamp"),
                                                              row.stringForColumn("type")));
        });
    return history;
}

std::optional<std::pair<std::int64_t, DebugLocation>> DebugLocation::getLastDebugLocation() {
    std::optional<std::pair<std::int64_t, DebugLocation>> last;
    BV1Database database;
    database.getDatabase().executeQuery(
        "SELECT id, latitude, longitude, type, timestamp FROM locations ORDER BY id DESC LIMIT 1", {},
        [&](const DatabaseRow& row) {
            last.emplace(row.int64ForColumn("id"),
                         DebugLocation(row.doubleForColumn("latitude"), row.doubleForColumn("longitude"),
                                       row.int64ForColumn("timestamp"), row.stringForColumn("type")));
        });
    return last;
}

} // namespace bvgeo
