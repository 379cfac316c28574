#include "models/ActiveFence.hpp"

#include "datastore/BV1Database.hpp"

namespace bvgeo {

SqlStatement ActiveFence::saveStatement(const ActiveFence& fence) {
    return {"INSERT OR REPLACE INTO activeFences (fence_id, activated_at, last_trigger_at) VALUES (?, ?, ?)",
            {fence.fenceId, fence.activatedAt, fence.lastTriggerAt}};
}

SqlStatement ActiveFence::removeStatement(const std::string& fenceId) {
    return {"DELETE FROM activeFences WHERE fence_id = ?", {fenceId}};
}

bool ActiveFence::save(const ActiveFence& fence) {
    const auto statement = saveStatement(fence);
    return BV1Database::executeUpdate(statement.sql, statement.args);
}

std::vector<std::shared_ptr<ActiveFence>> ActiveFence::getActiveFences() {
    std::vector<std::shared_ptr<ActiveFence>> fences;
    BV1Database database;
    database.getDatabase().executeQuery(
        "SELECT f.fence_id, f.activated_at, f.last_trigger_at, s.name FROM activeFences AS f "
        "JOIN fence AS s ON f.fence_id = s.id ORDER BY f.id",
        {}, [&](const DatabaseRow& row) {
            auto fence = std::make_shared<ActiveFence>(row.stringForColumn("fence_id"),
                                                       row.int64ForColumn("activated_at"), row.stringForColumn("name"));
            fence->lastTriggerAt = row.int64ForColumn("last_trigger_at");
            fences.push_back(std::move(fence));
        });
    return fences;
}

bool ActiveFence::remove(const std::string& fenceId) {
    const auto statement = removeStatement(fenceId);
    return BV1Database::executeUpdate(statement.sql, statement.args);
}

bool ActiveFence::removeAll() { return BV1Database::executeStatements("DELETE FROM activeFences"); }

} // namespace bvgeo
