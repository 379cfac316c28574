#include "datastore/DatabaseSnapshot.hpp"

#include <sqlite3.h>

namespace bvgeo {

namespace {

struct Handle {
    sqlite3* db = nullptr;
    ~Handle() { sqlite3_close(db); }
};

} // namespace

std::optional<std::string> snapshotDatabase(const std::string& path) {
    Handle source, copy;
    if (sqlite3_open_v2(path.c_str(), &source.db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK)
        return std::nullopt;
    sqlite3_busy_timeout(source.db, 5000);
    if (sqlite3_open_v2(":memory:", &copy.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK)
        return std::nullopt;
    sqlite3_backup* backup = sqlite3_backup_init(copy.db, "main", source.db, "main");
    if (!backup) return std::nullopt;
    // One step copies every page under one read transaction: a single point in time.
    const int stepped = sqlite3_backup_step(backup, -1);
    if (sqlite3_backup_finish(backup) != SQLITE_OK || stepped != SQLITE_DONE) return std::nullopt;
    sqlite3_int64 size = 0;
    unsigned char* bytes = sqlite3_serialize(copy.db, "main", &size, 0);
    if (!bytes) return std::nullopt;
    std::optional<std::string> out;
    try {
        out.emplace(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
        // Marked as a rollback-journal file (header bytes 18 and 19), so the copy opens
        // in any tool, read-only too, without looking for a WAL beside it.
        if (out->size() >= 100 && (*out)[18] == 2 && (*out)[19] == 2) (*out)[18] = (*out)[19] = 1;
    } catch (...) {
        out.reset();
    }
    sqlite3_free(bytes);
    return out;
}

} // namespace bvgeo
