#include "models/Trigger.hpp"

#include "datastore/BV1Database.hpp"

#include <nlohmann/json.hpp>

namespace bvgeo {

nlohmann::ordered_json BVTrigger::toParameters() const {
    nlohmann::ordered_json parameters = nlohmann::ordered_json::object();
    parameters["deviceId"] = deviceId;
    parameters["event"] = std::string(rawValue(event));
    parameters["timestamp"] = timestamp;
    parameters["fenceId"] = fenceId;
    return parameters;
}

SqlStatement Trigger::saveStatement(const BVTrigger& trigger) {
    return {"INSERT OR REPLACE INTO trigger (device_id , event , timestamp, fence_id, fence_name, location_event) "
            "VALUES (?, ?, ?, ?, ?, ?)",
            {trigger.deviceId, std::string(rawValue(trigger.event)), trigger.timestamp, trigger.fenceId,
             trigger.fenceName, std::string(rawValue(trigger.locationEvent))}};
}

bool Trigger::save(const BVTrigger& trigger) {
    const auto statement = saveStatement(trigger);
    return BV1Database::executeUpdate(statement.sql, statement.args);
}

std::vector<std::shared_ptr<BVTrigger>> Trigger::list() {
    std::vector<std::shared_ptr<BVTrigger>> triggers;
    BV1Database database;
    database.getDatabase().executeQuery("SELECT * FROM trigger ORDER BY id", {}, [&](const DatabaseRow& row) {
        auto event = triggerTypeFromRaw(row.stringForColumn("event"));
        if (!event) return;
        auto locationEvent = triggerLocationEventTypeFromRaw(row.stringForColumn("location_event"));
        triggers.push_back(std::make_shared<Trigger>(row.stringForColumn("device_id"), *event,
                                                     row.int64ForColumn("timestamp"), row.stringForColumn("fence_id"),
                                                     row.stringForColumn("fence_name"),
                                                     locationEvent.value_or(TriggerLocationEventType::Unknown)));
    });
    return triggers;
}

bool Trigger::removeAll() { return BV1Database::executeStatements("DELETE FROM trigger"); }

} // namespace bvgeo
