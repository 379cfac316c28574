// DatabaseConnection: the one SQLite connection to one database file, shared by
// every thread that touches that file. It owns the sqlite3 handle and its cache of
// prepared statements; a mutex held for the length of one call serialises all use,
// so callers on any thread may use it without further locking. The handle is
// opened lazily on first use (creating the directory it lives in) and stays open
// until close(), which checkpoints the WAL away so that only the database file is
// left on disk; the next call opens it again.
//
// Write groups batch commits: while any thread holds a group open, writes share one
// transaction, committed when the last group closes (or, under sustained load, after
// kMaxWritesPerGroupCommit writes). A group promises no atomicity: it only saves the
// per-commit locking and WAL frames when one unit of work writes several rows. It
// must wrap bounded, synchronous work only, since nothing it writes is visible to
// other processes, nor safe from a crash, until the commit.
//
// Connections live in a process-wide registry keyed by path (a SharedInstance, so
// resetting the shared instances closes them all). Callers must not hold a row
// handler's DatabaseRow beyond the callback, and must not use the connection from
// inside a row callback: the lock is not recursive.
#pragma once

#include "datastore/BV1Database.hpp"
#include "datastore/SqlValue.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace bvgeo {

class DatabaseConnection {
public:
    explicit DatabaseConnection(std::string path);
    ~DatabaseConnection();

    DatabaseConnection(const DatabaseConnection&) = delete;
    DatabaseConnection& operator=(const DatabaseConnection&) = delete;

    // The connection for `path`, created on first request; never null.
    static std::shared_ptr<DatabaseConnection> forPath(const std::string& path);
    // Closes every connection in the registry.
    static void closeAll();

    const std::string& path() const { return path_; }

    // `atomic` wraps the whole text in one transaction, so a failure part-way
    // leaves the file as it was (the text must not open a transaction itself).
    bool executeStatements(const std::string& sql, bool atomic = false);
    bool executeUpdate(const std::string& sql, const SqlValues& args);
    // Every statement with its values, in one transaction: all of them or none.
    bool executeBatch(const std::vector<SqlStatement>& statements);
    bool executeQuery(const std::string& sql, const SqlValues& args, const RowHandler& row);

    void beginWriteGroup();
    void endWriteGroup();

    // Closes the handle, then runs `whileClosed` before anyone can open it again.
    // Moving or deleting the file happens there, so no other thread recreates a WAL
    // beside a file that is being moved away.
    void closeAndRun(const std::function<void()>& whileClosed = {});
    void close() { closeAndRun(); }

    // "PRAGMA user_version", -1 when it cannot be read. `generation` receives the
    // number of the open handle it was read from.
    int userVersion(std::uint64_t* generation = nullptr);

    // Whether the open file is known to carry the schema. Cleared on close, since
    // the next open may meet a different (or no) file at the path.
    bool schemaChecked() const { return schemaChecked_.load(std::memory_order_acquire); }
    // Sets the flag only if the handle of `generation` is still the open one: a close
    // in between (a move of the file) must not leave a new file marked as checked.
    void markSchemaChecked(std::uint64_t generation);

private:
    struct Statement {
        sqlite3_stmt* handle = nullptr;
        // Result column names by index; filled on first use, looked up by name.
        std::vector<std::string> columns;
    };

    // All below: with mutex_ held.
    bool ensureOpen();
    void closeLocked();
    Statement* prepare(const std::string& sql);
    bool bind(Statement& statement, const SqlValues& args);
    bool run(const std::string& sql, const SqlValues& args, const RowHandler* row);
    // Opens the group's transaction before a write when a group is open.
    void joinWriteGroup();
    void commitWriteGroup();
    bool inTransaction() const;
    void undoBatch(bool nested);
    void reportFailure(const std::string& what, const std::string& detail);
    void reportSuccess() { failureReported_ = false; }

    const std::string path_;
    std::mutex mutex_;
    sqlite3* db_ = nullptr;
    std::unordered_map<std::string, Statement> statements_;
    // One console line per run of failures; the next success re-arms it.
    bool failureReported_ = false;
    std::uint64_t generation_ = 0; // counts successful opens
    std::atomic<bool> schemaChecked_{false};
    int openGroups_ = 0;
    bool groupTransaction_ = false; // BEGIN issued for the open groups
    int groupWrites_ = 0;
};

// Holds a write group open on the default database file for its lifetime.
class WriteGroup {
public:
    WriteGroup();
    ~WriteGroup();
    WriteGroup(const WriteGroup&) = delete;
    WriteGroup& operator=(const WriteGroup&) = delete;

private:
    std::shared_ptr<DatabaseConnection> connection_;
};

} // namespace bvgeo
