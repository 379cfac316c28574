#include "Records.hpp"

#include "Args.hpp"

#include "datastore/BV1Database.hpp"
#include "logger/LogCategory.hpp"

#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include <filesystem>
#include <iostream>
#include <memory>

namespace bvgeo::cli {

const char* const kRecordsHelp = R"(usage: bvgeo logs|triggers|locations [--data-dir DIR] [--category C] [--json]

Reads the library's database in a data directory back, oldest first.

  --data-dir DIR   documents directory the library wrote to (default ./bvgeo-data)
  --category C     logs only: FENCE, ZONE, GENERAL, LOCATION, REQUESTS, TRIGGER or CLIENT
  --json           one JSON object per row

example:
  bvgeo logs --data-dir bvgeo-data --category TRIGGER
)";

namespace {

struct Query {
    const char* sql;
    std::vector<const char*> columns;
};

Query queryFor(const std::string& kind, bool byCategory) {
    if (kind == "logs")
        return {byCategory ? "SELECT id, timestamp, category, message FROM log WHERE category = ? ORDER BY id"
                           : "SELECT id, timestamp, category, message FROM log ORDER BY id",
                {"id", "timestamp", "category", "message"}};
    if (kind == "triggers")
        return {"SELECT id, timestamp, event, fence_id, fence_name, location_event, device_id FROM trigger ORDER BY id",
                {"id", "timestamp", "event", "fence_id", "fence_name", "location_event", "device_id"}};
    return {"SELECT id, timestamp, latitude, longitude, type FROM locations ORDER BY id",
            {"id", "timestamp", "latitude", "longitude", "type"}};
}

} // namespace

int runRecords(const std::string& kind, const std::vector<std::string>& words, std::ostream& out) {
    Args args(words, {{"data-dir"}, {"category"}, {"json", false}, {"help", false}});
    if (!args.positionals().empty()) throw UsageError(kind + " takes no file argument: use --data-dir");
    const auto category = args.value("category");
    if (category && kind != "logs") throw UsageError("--category applies to logs only");
    if (category && (category->empty() || !logCategoryFromRaw(*category)))
        throw UsageError("--category: '" + *category + "' is not a log category");

    const auto path = std::filesystem::path(args.value("data-dir", "./bvgeo-data")) /
                      std::string(BV1Database::kDefaultFileName);
    if (!std::filesystem::is_regular_file(path)) {
        std::cerr << "bvgeo: no database at " << path.string() << '\n';
        return 1;
    }
    sqlite3* raw = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr);
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(raw, sqlite3_close);
    const Query query = queryFor(kind, category.has_value());
    sqlite3_stmt* rawStatement = nullptr;
    if (opened != SQLITE_OK || sqlite3_prepare_v2(db.get(), query.sql, -1, &rawStatement, nullptr) != SQLITE_OK) {
        std::cerr << "bvgeo: cannot read " << path.string() << ": " << sqlite3_errmsg(db.get()) << '\n';
        return 1;
    }
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(rawStatement, sqlite3_finalize);
    if (category) sqlite3_bind_text(statement.get(), 1, category->c_str(), -1, SQLITE_TRANSIENT);

    const bool json = args.has("json");
    int rc;
    while ((rc = sqlite3_step(statement.get())) == SQLITE_ROW) {
        nlohmann::ordered_json row;
        std::string line;
        for (int i = 0; i < static_cast<int>(query.columns.size()); ++i) {
            const int type = sqlite3_column_type(statement.get(), i);
            const char* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), i));
            const std::string value = text ? text : "";
            if (json) {
                if (type == SQLITE_INTEGER) row[query.columns[i]] = sqlite3_column_int64(statement.get(), i);
                else if (type == SQLITE_FLOAT) row[query.columns[i]] = sqlite3_column_double(statement.get(), i);
                else if (type == SQLITE_NULL) row[query.columns[i]] = nullptr;
                else row[query.columns[i]] = value;
            } else {
                if (i > 0) line += i == 1 ? " " : "  ";
                line += value;
            }
        }
        if (json)
            out << row.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
        else
            out << line << '\n';
    }
    if (rc != SQLITE_DONE) {
        std::cerr << "bvgeo: cannot read " << path.string() << ": " << sqlite3_errmsg(db.get()) << '\n';
        return 1;
    }
    return 0;
}

} // namespace bvgeo::cli
