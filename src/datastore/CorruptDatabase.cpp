#include "datastore/CorruptDatabase.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <sqlite3.h>

namespace bvgeo {

bool isCorruptionCode(int sqliteResult) {
    const int primary = sqliteResult & 0xff;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

std::optional<std::string> quickCheckProblem(sqlite3* db) {
    std::string found;
    char* message = nullptr;
    const int rc = sqlite3_exec(
        db, "PRAGMA quick_check(1)",
        [](void* out, int, char** values, char**) {
            *static_cast<std::string*>(out) = values[0] ? values[0] : "";
            return 0;
        },
        &found, &message);
    std::string error = message ? message : (rc != SQLITE_OK ? sqlite3_errmsg(db) : "");
    sqlite3_free(message);
    if (rc != SQLITE_OK) {
        if (isCorruptionCode(rc)) return error;
        return std::nullopt; // busy, out of memory, I/O: says nothing about the file's state
    }
    if (found == "ok") return std::nullopt;
    if (found.empty()) return std::string("quick_check gave no answer");
    // One line for the console and the log: "*** in database main ***\nPage 2: ...".
    for (auto& c : found)
        if (c == '\n' || c == '\r') c = ' ';
    return found;
}

std::optional<std::string> moveDatabaseAside(const std::string& path, const std::string& kind, std::string* error) {
    const auto& p = platform();
    const auto stamp = p.dateFormatter->format(static_cast<double>(p.clock->now()), "yyyyMMdd-HHmmss");
    return moveFileAside(*p.files, path, kind, stamp, {"-wal", "-shm"}, error);
}

} // namespace bvgeo
