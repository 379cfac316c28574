// DatabaseConnection: the one SQLite connection to one database file, shared by
// every thread that touches that file. It owns the sqlite3 handle and its cache of
// prepared statements; a mutex held for the length of one call serialises all use,
// so callers on any thread may use it without further locking. The handle is
// opened lazily on first use (creating the directory it lives in) and stays open
// until close(), which checkpoints the WAL away so that only the database file is
// left on disk; the next call opens it again. What kind of file it is (schema,
// durability, how its owner hears of damage) is the DatabaseFile it was made with:
// the library's database unless forPath is told otherwise.
//
// No lock of the connection is held while anything outside it runs: console lines
// and the file's damage notices are delivered after the mutex is released, so a
// console that calls back into the library (a host's callback logging a line) finds
// the connection free.
//
// Write groups batch commits: while any thread holds a group open, writes and reads
// share one transaction, committed when the last group closes (or, under sustained
// load, after kMaxWritesPerGroupCommit writes). A group promises no atomicity: it only
// saves the per-statement locking and WAL frames when one unit of work touches several
// rows (a WAL transaction takes and drops three locks of the -shm file). It
// must wrap bounded, synchronous work only, since nothing it writes is visible to
// other processes, nor safe from a crash, until the commit. A write that returned
// true is in that commit; only the disk failing (a commit that cannot be written)
// loses it, and the console says so. A PendingCommit lets the groups' commit wait for
// work queued for later (the trigger job of a location update) without holding a
// group open across the hop: nobody waits for it, since any write made outside a
// group commits what waits first.
//
// A durable unit (executeDurable) is what must be on disk before anyone is told of
// it (a trigger): its statements run together under the mutex, in a savepoint of
// their own, and are committed at once, with whatever the groups had written. No
// other thread's statement can run inside it, fail it, or be rolled back with it.
//
// A file that is no database, fails "PRAGMA quick_check" when opened, or makes a
// statement report corruption (or, for a kind that asks, was written by a newer
// version) is closed, moved aside (moveDatabaseAside) and replaced by a fresh file;
// the DatabaseFile's firstRow and onSetAside tell of it. Other failures (disk full,
// I/O errors, an unwritable directory) give one console warning per kind until a
// commit succeeds again.
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
#include "datastore/DatabaseFile.hpp"
#include "datastore/SqlValue.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace bvgeo {

class DatabaseConnection {
public:
    explicit DatabaseConnection(std::string path, DatabaseFile file = BV1Database::databaseFile());
    ~DatabaseConnection();

    DatabaseConnection(const DatabaseConnection&) = delete;
    DatabaseConnection& operator=(const DatabaseConnection&) = delete;

    // The connection for `path`, created on first request; never null. The first
    // request decides what kind of file it is: the library's database unless `file`
    // says otherwise.
    static std::shared_ptr<DatabaseConnection> forPath(const std::string& path);
    static std::shared_ptr<DatabaseConnection> forPath(const std::string& path, const DatabaseFile& file);
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
    // A durable unit: every statement, in order, then a commit at once (which takes
    // the groups' rows along). True only when all of them ran and the commit is
    // written; otherwise none of them is kept, and nothing else is undone with them.
    bool executeDurable(const std::vector<SqlStatement>& statements);

    void beginWriteGroup();
    void endWriteGroup();
    // A PendingCommit's three moments: made on the thread whose groups' commit waits
    // (`holder`), adopted by a group (which then commits as any group does), or
    // dropped unadopted.
    void holdCommit(std::thread::id holder);
    void adoptHeldCommit(std::thread::id holder);
    void releaseHeldCommit(std::thread::id holder);

    // What the calling thread's last failed call on any connection said; empty after
    // one that succeeded.
    static std::string lastError();
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
    // The mutex for one call; notices queued meanwhile are delivered after it is let go.
    class Locked {
    public:
        explicit Locked(DatabaseConnection& connection);
        ~Locked();
        Locked(const Locked&) = delete;
        Locked& operator=(const Locked&) = delete;

    private:
        DatabaseConnection& connection_;
        std::unique_lock<std::mutex> lock_;
    };

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
    // A configured handle, or nullptr; `damage` is set when the file is damaged and
    // `kind` to what it goes aside as.
    sqlite3* openFile(std::string& damage, std::string& kind);
    // Moves the damaged file (closed) aside and opens a fresh one in its place.
    void replaceDamagedFile(const std::string& damage, const std::string& kind = "corrupt");
    // Commits what waits for an unadopted PendingCommit before a write outside any group.
    void settleHeldCommit();
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
    // `kind` is the SQLite primary result code, or a negative number for failures
    // outside SQLite: each kind is reported once until a commit succeeds. True when
    // this call reported it.
    bool reportFailure(const std::string& what, const std::string& detail, int kind);
    // Runs `notice` once the mutex is released.
    void notice(std::function<void()> notice) { notices_.push_back(std::move(notice)); }
    void committed() { reportedKinds_.clear(); }
    void refreshRowLimits();
    // Whether a trim is due, counting `extra` rows about to be added.
    bool trimDue(std::size_t extra = 0);
    // Deletes the oldest rows beyond each limit: those due, or every excess with `all`.
    void trimRows(bool all);
    static void rowChanged(void* self, int operation, const char* database, const char* table, long long rowid);

    const std::string path_;
    const DatabaseFile file_;
    std::mutex mutex_;
    std::vector<std::function<void()>> notices_;
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
    // The threads of PendingCommits made and not yet adopted or dropped: a group
    // ending on one of them leaves the commit to the adopter; any other commits.
    std::vector<std::thread::id> holders_;
    std::vector<RowLimit> rowLimits_;
    bool fastSecureDelete_ = false; // set on the open handle before its first trim
    std::uint64_t rowLimitsVersion_ = 0;
};

// The commit of the write groups open on the default database file on this thread,
// handed on to work queued for later: when they close, their transaction stays open
// for the WriteGroup that adopts it. Holds no group open and keeps nobody waiting: a
// group closing on any other thread commits as usual, any write outside a group
// commits what waits before it runs, and dropping it unadopted commits too.
class PendingCommit {
public:
    PendingCommit();
    ~PendingCommit();
    PendingCommit(PendingCommit&& other) noexcept;
    PendingCommit& operator=(PendingCommit&&) = delete;
    PendingCommit(const PendingCommit&) = delete;

private:
    friend class WriteGroup;
    std::shared_ptr<DatabaseConnection> connection_;
    std::thread::id holder_;
};

// Holds a write group open on the default database file for its lifetime; the
// second form continues the commit a PendingCommit handed on.
class WriteGroup {
public:
    WriteGroup();
    explicit WriteGroup(PendingCommit&& handedOn);
    ~WriteGroup();
    WriteGroup(const WriteGroup&) = delete;
    WriteGroup& operator=(const WriteGroup&) = delete;

private:
    std::shared_ptr<DatabaseConnection> connection_;
};

// The statements of one durable unit on the default database file: add() collects
// them, commit() runs them all and commits at once (DatabaseConnection::
// executeDurable). Nothing is written before commit(); dropped without it, nothing.
class DurableWrite {
public:
    DurableWrite() = default;
    DurableWrite(const DurableWrite&) = delete;
    DurableWrite& operator=(const DurableWrite&) = delete;
    DurableWrite(DurableWrite&&) = default;
    DurableWrite& operator=(DurableWrite&&) = default;

    void add(SqlStatement statement) { statements_.push_back(std::move(statement)); }
    bool empty() const { return statements_.empty(); }
    // True when every statement ran and the commit is written. Once only.
    bool commit();

private:
    std::vector<SqlStatement> statements_;
    bool committed_ = false;
};

} // namespace bvgeo
