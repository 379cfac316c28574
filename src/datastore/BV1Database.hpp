// BV1Database: the library's one SQLite file in the documents directory, its schema
// (version 1, in "PRAGMA user_version") and the operations on the file itself.
//
// Objects are cheap and short-lived; the connection behind them is not: one
// connection per file is opened on first use and kept (WAL journal, prepared
// statements cached), shared by every thread under a short lock. Moving the file
// away closes it, and the next access starts a new file with the schema.
// Every value reaches SQLite as a bound parameter.
#pragma once

#include "datastore/DatabaseFile.hpp"
#include "datastore/SqlValue.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace bvgeo {

class DatabaseConnection;

// One row of a query result, read by column name. NULL reads as empty text, 0 or 0.0.
class DatabaseRow {
public:
    virtual ~DatabaseRow() = default;
    virtual std::string stringForColumn(std::string_view name) const = 0;
    virtual std::int64_t int64ForColumn(std::string_view name) const = 0;
    virtual double doubleForColumn(std::string_view name) const = 0;
    virtual bool columnIsNull(std::string_view name) const = 0;
    virtual std::int64_t int64ForColumnIndex(int index) const = 0;
};

using RowHandler = std::function<void(const DatabaseRow& row)>;

// Access to the file's shared connection, as handed out by getDatabase().
class DatabaseHandle {
public:
    explicit DatabaseHandle(std::string path) : path_(std::move(path)) {}

    // Runs every statement of a semicolon-separated text. True when all ran.
    bool executeStatements(const std::string& sql) const;
    // Runs one statement with `args` bound to its parameters, in order.
    bool executeUpdate(const std::string& sql, const SqlValues& args = {}) const;
    // Runs one query with bound `args` and calls `row` for each result row, in the
    // order SQLite returns them. False when the query could not run.
    bool executeQuery(const std::string& sql, const SqlValues& args, const RowHandler& row) const;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

class BV1Database {
public:
    static constexpr std::string_view kDefaultFileName = "BVGDatabase.sqlite";
    static const std::string kSchemaVersion1; // the full schema text of version 1

    // The kind of file it is for the storage engine: schema version 1, commits synced
    // at checkpoints, row limits, and a damaged file told of by a GENERAL row in the
    // fresh one and a console warning.
    static const DatabaseFile& databaseFile();

    // Makes sure the file exists with the current schema.
    explicit BV1Database(std::string fileName = std::string(kDefaultFileName));

    const std::string& fileName() const { return fileName_; }
    // Documents directory + fileName.
    std::string path() const;

    DatabaseHandle getDatabase() const { return DatabaseHandle(path()); }

    // The schema version, -1 when it cannot be read.
    int getDatabaseVersion() const;
    // Gives the file the schema when its version is below 1.
    void createDatabase();
    // Runs the schema text of `version` (version 1 only; others run nothing).
    void createMigratedDatabase(int version);

    // One write on the default file: every statement of `sql` / one statement with
    // bound values. True when it ran.
    static bool executeStatements(const std::string& sql);
    static bool executeUpdate(const std::string& sql, const SqlValues& args);
    // Several statements on the default file in one transaction: all or none.
    static bool executeBatch(const std::vector<SqlStatement>& statements);

    // Whether `name`.sqlite exists in the documents directory.
    bool checkIfNewFileExists(const std::string& name) const;
    // Closes the file and moves it to `name`.sqlite beside it. Reports on the console.
    void moveAndRenameDatabase(const std::string& name);
    // Deletes the default file (creating it first when missing). Reports on the console.
    static void removeDatabase();

    // Closes every open connection; the next access opens them again.
    static void closeAll();

    // Keeps at most `maxRows` rows ("log", "locations"), deleting the oldest as new
    // ones come; 0 (the default) keeps them all. Process-wide, any time.
    static void setRowLimit(const std::string& table, std::size_t maxRows);
    // How often a damaged file at this path has been moved aside and replaced.
    std::uint64_t replacements() const;

private:
    std::string fileName_;
};

} // namespace bvgeo
