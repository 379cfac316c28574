// snapshotDatabase: a consistent copy of a live SQLite file, as SQLite's online
// backup API makes it through a read-only connection of its own. It holds every
// committed row, also those still only in the WAL, and nothing uncommitted, so
// it can be attached or saved while the library keeps writing. Any thread.
#pragma once

#include <optional>
#include <string>

namespace bvgeo {

// The bytes of a database file holding what `path` holds; std::nullopt when the
// file cannot be opened or read.
std::optional<std::string> snapshotDatabase(const std::string& path);

} // namespace bvgeo
