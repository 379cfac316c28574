#include "models/Log.hpp"

#include "datastore/BV1Database.hpp"
#include "logger/Logger.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace bvgeo {

bool Log::save(Log record) {
    return Logger::saveLogToDatabase(std::move(record.message), record.category, record.timestamp);
}

namespace {

std::shared_ptr<Log> logFromRow(const DatabaseRow& row) {
    auto log = std::make_shared<Log>();
    log->id = std::to_string(row.int64ForColumn("id"));
    log->message = row.stringForColumn("message");
    log->category = logCategoryFromRaw(row.stringForColumn("category")).value_or(LogCategory::NONE);
    log->timestamp = row.int64ForColumn("timestamp");
    return log;
}

} // namespace

std::vector<std::shared_ptr<Log>> Log::getLogsFromDatabase(LogCategory category) {
    std::vector<std::shared_ptr<Log>> logs;
    BV1Database database;
    auto read = [&](const DatabaseRow& row) { logs.push_back(logFromRow(row)); };
    if (category == LogCategory::NONE)
        database.getDatabase().executeQuery("SELECT * FROM log ORDER BY id", {}, read);
    else
        database.getDatabase().executeQuery("SELECT * FROM log WHERE category = ? ORDER BY id",
                                            {std::string(rawValue(category))}, read);
    return logs;
}

Log::Page Log::getLogsPage(LogCategory category, std::optional<std::int64_t> beforeId, std::size_t limit) {
    // Walks the row key backwards from `beforeId`; one row past the page tells
    // whether older rows remain.
    static const std::string kAll = "SELECT * FROM log WHERE id < ? ORDER BY id DESC LIMIT ?";
    static const std::string kCategory = "SELECT * FROM log WHERE id < ? AND category = ? ORDER BY id DESC LIMIT ?";
    Page page;
    const std::int64_t below = beforeId.value_or(std::numeric_limits<std::int64_t>::max());
    const auto fetch = static_cast<std::int64_t>(std::min<std::size_t>(limit, 1'000'000) + 1);
    auto read = [&](const DatabaseRow& row) { page.rows.push_back(logFromRow(row)); };
    BV1Database database;
    if (category == LogCategory::NONE)
        database.getDatabase().executeQuery(kAll, {below, fetch}, read);
    else
        database.getDatabase().executeQuery(kCategory, {below, std::string(rawValue(category)), fetch}, read);
    if (page.rows.size() > limit) {
        page.rows.resize(limit);
        page.more = true;
    }
    return page;
}

} // namespace bvgeo
