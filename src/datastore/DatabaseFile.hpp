// DatabaseFile: what the storage engine needs to know of one kind of SQLite file the
// library keeps (the database, the outbox): the schema an empty file gets, how hard
// each commit is pushed to the disk, and how the file's owner hears that a damaged
// file was set aside. The engine (DatabaseConnection) does the opening, checking,
// moving aside and naming for every kind alike. Plain values; the callbacks are
// called on whichever thread met the damage, with no lock of the engine held.
#pragma once

#include "datastore/SqlValue.hpp"

#include <functional>
#include <optional>
#include <string>

namespace bvgeo {

// A file found damaged (or, where the kind asks for it, written by a newer version)
// and what became of it.
struct SetAside {
    std::string path;                   // where it was
    std::string kind;                   // "corrupt" or "newer": the word in its new name
    std::string problem;                // what was found ("database disk image is malformed")
    std::optional<std::string> movedTo; // its new path, or nothing when it could not be moved
    std::string error;                  // why it could not be moved
};

struct DatabaseFile {
    // Statements that give a file below `version` its tables, run in one transaction;
    // the text sets "PRAGMA user_version" itself.
    std::string schema;
    int version = 1;
    // Every commit synced (synchronous=FULL) rather than at checkpoints (NORMAL).
    bool syncEachCommit = false;
    // A file of a later version goes aside as "newer" instead of being used as it is.
    bool setAsideNewer = false;
    // Whether the process-wide row limits (DatabaseConnection::setRowLimit) apply.
    bool rowLimits = false;
    // Names the file in console lines: "<label>: cannot open <path>: ...".
    std::string label = "BV1Database";
    // A row written into the fresh file, before anything else, when a damaged one
    // was moved aside.
    std::function<std::optional<SqlStatement>(const SetAside&)> firstRow;
    // Told once the engine's lock is released: a file was moved aside (or could not
    // be; then once per run of failures).
    std::function<void(const SetAside&)> onSetAside;
};

} // namespace bvgeo
