#include "models/Log.hpp"

#include "datastore/BV1Database.hpp"

namespace bvgeo {

bool Log::save(const Log& record) {
    // Built once: every log line of the library comes through here.
    static const std::string kInsert = "INSERT INTO log (message, category, timestamp) VALUES (?, ?, ?)";
    return BV1Database::executeUpdate(kInsert,
                                      {record.message, std::string(rawValue(record.category)), record.timestamp});
}

std::vector<std::shared_ptr<Log>> Log::getLogsFromDatabase(LogCategory category) {
    std::vector<std::shared_ptr<Log>> logs;
    BV1Database database;
    auto read = [&](const DatabaseRow& row) {
        auto log = std::make_shared<Log>();
        log->id = std::to_string(row.int64ForColumn("id"));
        log->message = row.stringForColumn("message");
        log->category = logCategoryFromRaw(row.stringForColumn("category")).value_or(LogCategory::NONE);
        log->timestamp = row.int64ForColumn("timestamp");
        logs.push_back(std::move(log));
    };
    if (category == LogCategory::NONE)
        database.getDatabase().executeQuery("SELECT * FROM log ORDER BY id", {}, read);
    else
        database.getDatabase().executeQuery("SELECT * FROM log WHERE category = ? ORDER BY id",
                                            {std::string(rawValue(category))}, read);
    return logs;
}

} // namespace bvgeo
