// DatabaseConnection: the one SQLite connection to one database file, shared by
// every thread that touches that file. It owns the sqlite3 handle and its cache of
// prepared statements; a mutex held for the length of one call serialises all use,
// so callers on any thread may use it without further locking. The handle is
// opened lazily on first use (creating the directory it lives in) and stays open
// until close(), which checkpoints the WAL away so that only the database file is
// left on disk; the next call opens it again.
//
// Write groups batch commits: while any thread holds a group open, writes and reads
// share one transaction, committed when the last group closes (or, under sustained
// load, after kMaxWritesPerGroupCommit writes). A group promises no atomicity: it only
// saves the per-statement locking and WAL frames when one unit of work touches several
// rows (a WAL transaction takes and drops three locks of the -shm file). It
// must wrap bounded, synchronous work only, since nothing it writes is visible to
// other processes, nor safe from a crash, until the commit. What must be on disk
// before anyone is told of it (a trigger) is written in a durable unit instead: a
// savepoint inside the group's transaction, committed at once when it ends.
//
// A file that is no database, fails "PRAGMA quick_check" when opened, or makes a
// statement report corruption is closed, moved aside (moveCorruptDatabaseAside) and
// replaced by a fresh file; a GENERAL log row in the new file and a console warning
// say so. Other failures (disk full, I/O errors, an unwritable directory) give one
// console warning per kind until a commit succeeds again.
//
// Row limits: tables given a limit (setRowLimit) lose their oldest rows, by key, in
// the commits that add new ones once enough have been added (not one DELETE per
// insert), and all the excess when the connection closes.
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
#include <set>
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

    // Keeps at most `maxRows` rows in `table` (a table of the library's schema with
    // an INTEGER PRIMARY KEY "id") in every database; 0 lifts the limit. Process-wide.
    static void setRowLimit(const std::string& table, std::size_t maxRows);

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

    // A durable unit (one at a time per connection; the trigger engine's): writes
    // between begin and commit go to a savepoint of the group's transaction (or of a
    // transaction of its own); commit releases it and commits that transaction at
    // once. True only when every statement since begin succeeded, on the same file,
    // and the commit did. abandon rolls the unit back and keeps the group's rows.
    void beginDurable();
    bool commitDurable();
    void abandonDurable();

    // How many times a damaged file at this path has been replaced by a fresh one.
    std::uint64_t replacements() const { return replacements_.load(std::memory_order_acquire); }

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

    struct RowLimit {
        std::string table;
        std::size_t maxRows = 0;
        std::size_t added = 0; // rows inserted since the last trim
    };

    // All below: with mutex_ held.
    bool ensureOpen();
    // A configured handle, or nullptr; `damage` is set when the file is damaged.
    sqlite3* openFile(std::string& damage);
    // Moves the damaged file (closed) aside and opens a fresh one in its place.
    void replaceDamagedFile(const std::string& damage);
    // After a statement reported corruption: close, move aside, start afresh.
    void recoverIfDamaged();
    // `damaged`: no checkpoint and no commit, the file is going aside as it is.
    void closeLocked(bool damaged = false);
    Statement* prepare(const std::string& sql);
    bool bind(Statement& statement, const SqlValues& args);
    bool run(const std::string& sql, const SqlValues& args, const RowHandler* row);
    // Opens the group's transaction before a write (or a read) when a group is open.
    void joinWriteGroup(bool write = true);
    void commitWriteGroup();
    bool inTransaction() const;
    void undoBatch(bool nested);
    // Runs a statement text outside the statement cache; notes damage and failures
    // (not on the console). Returns the SQLite result code.
    int exec(const char* sql, std::string* error = nullptr);
    void undoDurable();
    // `kind` is the SQLite primary result code, or a negative number for failures
    // outside SQLite: each kind is reported once until a commit succeeds.
    void reportFailure(const std::string& what, const std::string& detail, int kind);
    void committed() { reportedKinds_.clear(); }
    void refreshRowLimits();
    // Whether a trim is due, counting `extra` rows about to be added.
    bool trimDue(std::size_t extra = 0);
    // Deletes the oldest rows beyond each limit: those due, or every excess with `all`.
    void trimRows(bool all);
    static void rowChanged(void* self, int operation, const char* database, const char* table, long long rowid);

    const std::string path_;
    std::mutex mutex_;
    sqlite3* db_ = nullptr;
    std::unordered_map<std::string, Statement> statements_;
    // Kinds of failure already on the console; a successful commit re-arms them all.
    std::set<int> reportedKinds_;
    std::string damage_; // what a statement found broken; acted on when the call ends
    std::uint64_t generation_ = 0; // counts successful opens
    std::atomic<std::uint64_t> replacements_{0};
    std::atomic<bool> schemaChecked_{false};
    int openGroups_ = 0;
    bool groupTransaction_ = false; // BEGIN issued for the open groups
    int groupWrites_ = 0;
    bool durableOpen_ = false;
    bool durableFailed_ = false;
    bool durableOwnTransaction_ = false; // BEGIN issued for the unit alone
    std::uint64_t durableGeneration_ = 0;
    std::vector<RowLimit> rowLimits_;
    bool fastSecureDelete_ = false; // set on the open handle before its first trim
    std::uint64_t rowLimitsVersion_ = 0;
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

// A durable unit on the default database file for its lifetime: commit() puts what
// was written since construction on disk at once; without it, it is rolled back.
class DurableWrite {
public:
    DurableWrite();
    ~DurableWrite();
    DurableWrite(const DurableWrite&) = delete;
    DurableWrite& operator=(const DurableWrite&) = delete;

    bool commit();

private:
    std::shared_ptr<DatabaseConnection> connection_;
    bool open_ = true;
};

} // namespace bvgeo
