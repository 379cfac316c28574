// Damaged SQLite files: how to tell one, and how to put it aside so that a fresh file
// can take its place. Used by the database connection, and by any other SQLite file
// the library keeps in the documents directory. Pure apart from the file moves; any
// thread, but no connection may hold the file open while it is moved.
#pragma once

#include <optional>
#include <string>

struct sqlite3;

namespace bvgeo {

// Whether a SQLite result code (extended codes included) says the file is damaged
// or is no database at all (SQLITE_CORRUPT, SQLITE_NOTADB). Busy, full or I/O
// errors are not damage: they pass.
bool isCorruptionCode(int sqliteResult);

// Runs "PRAGMA quick_check" on an open handle: std::nullopt when the file is sound
// (or the check could not run for a passing reason such as a lock), otherwise what
// the check found.
std::optional<std::string> quickCheckProblem(sqlite3* db);

// Moves the damaged database at `path` with its "-wal" and "-shm" files to
// "<stem>.<kind>-<yyyyMMdd-HHmmss><extension>" in the same directory, the time being
// the platform clock's now in local time ("BVGDatabase.sqlite" set aside as "corrupt"
// becomes "BVGDatabase.corrupt-20140510-092446.sqlite"; "-2", "-3"... follow the time
// when that name is taken). Returns the new path of the database file, or
// std::nullopt with `error` set when it could not be moved.
std::optional<std::string> moveDatabaseAside(const std::string& path, const std::string& kind,
                                             std::string* error = nullptr);

} // namespace bvgeo
