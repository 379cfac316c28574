#include "datastore/BV1Database.hpp"

#include "datastore/DatabaseConnection.hpp"
#include "logger/Logger.hpp"

#include <bvgeo/platform/Platform.hpp>

namespace bvgeo {

const std::string BV1Database::kSchemaVersion1 =
    "CREATE TABLE IF NOT EXISTS log (id INTEGER PRIMARY KEY, message TEXT DEFAULT NULL, category TEXT DEFAULT NULL, "
    "timestamp INTEGER DEFAULT 0);"
    "CREATE TABLE IF NOT EXISTS fence (id TEXT PRIMARY KEY, name TEXT DEFAULT NULL, latitude TEXT DEFAULT NULL, "
    "longitude TEXT DEFAULT NULL, radius REAL DEFAULT NULL, content_ids TEXT DEFAULT NULL, current_zone INTEGER "
    "DEFAULT 0);"
    "CREATE TABLE IF NOT EXISTS locations (id INTEGER PRIMARY KEY, latitude REAL DEFAULT NULL, longitude REAL DEFAULT "
    "NULL, timestamp INTEGER DEFAULT 0, type TEXT DEFAULT NULL);"
    "CREATE TABLE IF NOT EXISTS trigger (id INTEGER PRIMARY KEY, device_id TEXT DEFAULT NULL, fence_id TEXT DEFAULT "
    "NULL, fence_name TEXT DEFAULT NULL, event TEXT DEFAULT NULL, timestamp INTEGER DEFAULT 0, location_event TEXT "
    "DEFAULT 'unknown');"
    "CREATE TABLE IF NOT EXISTS activeFences (id INTEGER PRIMARY KEY, fence_id TEXT DEFAULT NULL, activated_at INTEGER "
    "DEFAULT 0, last_trigger_at INTEGER DEFAULT 0);"
    "CREATE UNIQUE INDEX IF NOT EXISTS ActiveFencesUniqueId ON activeFences (fence_id);"
    "PRAGMA user_version = 1;";

namespace {

std::string damagedText(const SetAside& aside) {
    return "The database file was damaged (" + aside.problem + "): moved to " + aside.movedTo.value_or("") +
           "; a new file was started";
}

} // namespace

const DatabaseFile& BV1Database::databaseFile() {
    static const DatabaseFile file = [] {
        DatabaseFile f;
        f.schema = kSchemaVersion1;
        f.version = 1;
        f.rowLimits = true;
        // Written by the engine itself: a save through the Logger would come back to
        // the connection's lock.
        f.firstRow = [](const SetAside& aside) -> std::optional<SqlStatement> {
            const auto& p = platform();
            const std::int64_t now = p.clock->now();
            return SqlStatement{"INSERT INTO log (message, category, timestamp) VALUES (?, ?, ?)",
                                {Logger::formatMessage(
                                     p.dateFormatter->format(static_cast<double>(now), "yyyy-MM-dd HH:mm:ss"),
                                     "createDatabase()", 0, damagedText(aside)),
                                 std::string("GENERAL"), now}};
        };
        f.onSetAside = [](const SetAside& aside) {
            if (aside.movedTo) platform().console->warn(damagedText(aside));
        };
        return f;
    }();
    return file;
}

bool DatabaseHandle::executeStatements(const std::string& sql) const {
    return DatabaseConnection::forPath(path_)->executeStatements(sql);
}

bool DatabaseHandle::executeUpdate(const std::string& sql, const SqlValues& args) const {
    return DatabaseConnection::forPath(path_)->executeUpdate(sql, args);
}

bool DatabaseHandle::executeQuery(const std::string& sql, const SqlValues& args, const RowHandler& row) const {
    return DatabaseConnection::forPath(path_)->executeQuery(sql, args, row);
}

BV1Database::BV1Database(std::string fileName) : fileName_(std::move(fileName)) {
    // Every record operation builds one of these; after the first, the flag makes
    // that a lookup instead of a query.
    if (!DatabaseConnection::forPath(path())->schemaChecked()) createDatabase();
}

std::string BV1Database::path() const {
    return appendPathComponent(platform().files->documentsDirectory(), fileName_);
}

int BV1Database::getDatabaseVersion() const { return DatabaseConnection::forPath(path())->userVersion(); }

void BV1Database::createDatabase() {
    auto connection = DatabaseConnection::forPath(path());
    std::uint64_t generation = 0;
    int version = connection->userVersion(&generation);
    if (version < 1) {
        createMigratedDatabase(1);
        version = connection->userVersion(&generation);
    }
    if (version >= 1) connection->markSchemaChecked(generation);
}

void BV1Database::createMigratedDatabase(int version) {
    // Version 1 is the only schema there is; later versions have no text yet.
    if (version != 1) return;
    // One transaction: a file that fails part-way keeps no half of the schema.
    DatabaseConnection::forPath(path())->executeStatements(kSchemaVersion1, true);
}

bool BV1Database::executeStatements(const std::string& sql) {
    BV1Database database;
    return database.getDatabase().executeStatements(sql);
}

bool BV1Database::executeUpdate(const std::string& sql, const SqlValues& args) {
    BV1Database database;
    return database.getDatabase().executeUpdate(sql, args);
}

bool BV1Database::executeBatch(const std::vector<SqlStatement>& statements) {
    BV1Database database;
    return DatabaseConnection::forPath(database.path())->executeBatch(statements);
}

bool BV1Database::checkIfNewFileExists(const std::string& name) const {
    auto& files = *platform().files;
    return files.fileExists(appendPathComponent(files.documentsDirectory(), name + ".sqlite"));
}

void BV1Database::moveAndRenameDatabase(const std::string& name) {
    auto& files = *platform().files;
    const auto directory = files.documentsDirectory();
    const auto source = appendPathComponent(directory, fileName_);
    const auto target = appendPathComponent(directory, name + ".sqlite");
    std::string outcome;
    DatabaseConnection::forPath(source)->closeAndRun([&] {
        if (!files.fileExists(source)) {
            outcome = "File not found";
            return;
        }
        auto moved = files.moveItem(source, target);
        outcome = moved ? "Move successful" : "Moved failed with error: " + moved.error;
    });
    platform().console->print(outcome);
}

void BV1Database::removeDatabase() {
    BV1Database database;
    const auto path = database.path();
    auto& files = *platform().files;
    std::string outcome;
    DatabaseConnection::forPath(path)->closeAndRun([&] {
        if (!files.fileExists(path)) {
            outcome = "Database file was not found";
            return;
        }
        auto removed = files.removeItem(path);
        outcome = removed ? "Remove Database successful" : "Remove Database failed with error: " + removed.error;
    });
    platform().console->print(outcome);
}

void BV1Database::closeAll() { DatabaseConnection::closeAll(); }

void BV1Database::setRowLimit(const std::string& table, std::size_t maxRows) {
    DatabaseConnection::setRowLimit(table, maxRows);
}

std::uint64_t BV1Database::replacements() const { return DatabaseConnection::forPath(path())->replacements(); }

} // namespace bvgeo
