// Reading a SQLite file the way another process would: a connection of its own,
// read-only, so it sees committed rows only.
#pragma once

#include <sqlite3.h>

#include <string>

namespace bvgeo::testing {

// First column of the first row of `sql` on the file at `path`; "" when it cannot run.
inline std::string sqliteScalar(const std::string& path, const std::string& sql) {
    std::string out;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK)
        sqlite3_exec(
            db, sql.c_str(),
            [](void* target, int, char** values, char**) {
                *static_cast<std::string*>(target) = values[0] ? values[0] : "NULL";
                return 1;
            },
            &out, nullptr);
    sqlite3_close(db);
    return out;
}

} // namespace bvgeo::testing
