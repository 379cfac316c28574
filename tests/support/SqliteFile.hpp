// Reading a SQLite file the way another process would: a connection of its own,
// read-only, so it sees committed rows only. It waits out a writer's lock, and it
// never checkpoints on close, so a file a killed program left behind stays as it was.
#pragma once

#include <sqlite3.h>

#include <string>
#include <vector>

namespace bvgeo::testing {

// Rows of `sql` on the file at `path`, the columns of a row joined by '|', NULL as
// "NULL"; none when it cannot run.
inline std::vector<std::string> sqliteRows(const std::string& path, const std::string& sql) {
    std::vector<std::string> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        sqlite3_busy_timeout(db, 5000);
        auto collect = [](void* out, int count, char** values, char**) {
            std::string row;
            for (int i = 0; i < count; ++i) row += (i ? "|" : "") + std::string(values[i] ? values[i] : "NULL");
            static_cast<std::vector<std::string>*>(out)->push_back(row);
            return 0;
        };
        sqlite3_exec(db, sql.c_str(), collect, &rows, nullptr);
    }
    sqlite3_close(db);
    return rows;
}

// First column of the first row of `sql` on the file at `path`; "" when it cannot run.
inline std::string sqliteScalar(const std::string& path, const std::string& sql) {
    const auto rows = sqliteRows(path, sql);
    return rows.empty() ? "" : rows.front().substr(0, rows.front().find('|'));
}

} // namespace bvgeo::testing
