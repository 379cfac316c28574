#include "datastore/DatabaseConnection.hpp"

#include "datastore/CorruptDatabase.hpp"
#include "logger/Logger.hpp"
#include "platform/SharedInstance.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <sqlite3.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <type_traits>
#include <utility>

namespace bvgeo {

namespace {

// Writers on other connections to the same file (another process, an archive
// opened by a tool) get this long before a statement gives up with SQLITE_BUSY.
constexpr int kBusyTimeoutMs = 5000;
// Statement texts are constants of the library, so the cache stays small; the cap
// only guards against a caller that varies its SQL text.
constexpr std::size_t kMaxCachedStatements = 128;
// Kinds of failure that are not SQLite result codes (which are 0 to 255).
constexpr int kDirectoryFailure = -1;
constexpr int kMoveAsideFailure = -2;
constexpr int kBindFailure = -3;

thread_local std::string lastFailure;

class ConnectionRegistry {
public:
    std::shared_ptr<DatabaseConnection> get(const std::string& path, const DatabaseFile* file) {
        std::lock_guard lock(mutex_);
        auto& slot = connections_[path];
        if (!slot)
            slot = file ? std::make_shared<DatabaseConnection>(path, *file) : std::make_shared<DatabaseConnection>(path);
        return slot;
    }

    std::vector<std::shared_ptr<DatabaseConnection>> all() {
        std::lock_guard lock(mutex_);
        std::vector<std::shared_ptr<DatabaseConnection>> out;
        out.reserve(connections_.size());
        for (auto& [path, connection] : connections_) out.push_back(connection);
        return out;
    }

private:
    std::mutex mutex_;
    std::unordered_map<std::string, std::shared_ptr<DatabaseConnection>> connections_;
};

SharedInstance<ConnectionRegistry>& registrySlot() {
    static SharedInstance<ConnectionRegistry> slot;
    return slot;
}

ConnectionRegistry& registry() {
    return registrySlot().get([] { return std::make_unique<ConnectionRegistry>(); });
}

std::string parentDirectory(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos || slash == 0) return {};
    return path.substr(0, slash);
}

class StatementRow final : public DatabaseRow {
public:
    StatementRow(sqlite3_stmt* statement, const std::vector<std::string>& columns)
        : statement_(statement), columns_(columns) {}

    std::string stringForColumn(std::string_view name) const override {
        int index = indexOf(name);
        if (index < 0) return {};
        auto text = sqlite3_column_text(statement_, index);
        if (!text) return {};
        return std::string(reinterpret_cast<const char*>(text),
                           static_cast<std::size_t>(sqlite3_column_bytes(statement_, index)));
    }
    std::int64_t int64ForColumn(std::string_view name) const override {
        int index = indexOf(name);
        return index < 0 ? 0 : sqlite3_column_int64(statement_, index);
    }
    double doubleForColumn(std::string_view name) const override {
        int index = indexOf(name);
        return index < 0 ? 0.0 : sqlite3_column_double(statement_, index);
    }
    bool columnIsNull(std::string_view name) const override {
        int index = indexOf(name);
        return index < 0 || sqlite3_column_type(statement_, index) == SQLITE_NULL;
    }
    std::int64_t int64ForColumnIndex(int index) const override {
        if (index < 0 || index >= static_cast<int>(columns_.size())) return 0;
        return sqlite3_column_int64(statement_, index);
    }

private:
    // Result sets here have a handful of columns: a scan beats hashing.
    int indexOf(std::string_view name) const {
        for (std::size_t i = 0; i < columns_.size(); ++i)
            if (columns_[i] == name) return static_cast<int>(i);
        return -1;
    }

    sqlite3_stmt* statement_;
    const std::vector<std::string>& columns_;
};

} // namespace

DatabaseConnection::Locked::Locked(DatabaseConnection& connection)
    : connection_(connection), lock_(connection.mutex_) {
    lastFailure.clear();
}

DatabaseConnection::Locked::~Locked() {
    auto notices = std::move(connection_.notices_);
    connection_.notices_.clear();
    lock_.unlock();
    for (auto& notice : notices) {
        try {
            notice();
        } catch (...) {
            // A console that throws must not take the caller's result with it.
        }
    }
}

DatabaseConnection::DatabaseConnection(std::string path, DatabaseFile file)
    : path_(std::move(path)), file_(std::move(file)) {}

DatabaseConnection::~DatabaseConnection() {
    Locked locked(*this);
    closeLocked();
}

std::shared_ptr<DatabaseConnection> DatabaseConnection::forPath(const std::string& path) {
    return registry().get(path, nullptr);
}

std::shared_ptr<DatabaseConnection> DatabaseConnection::forPath(const std::string& path, const DatabaseFile& file) {
    return registry().get(path, &file);
}

std::string DatabaseConnection::lastError() { return lastFailure; }

void DatabaseConnection::closeAll() {
    // peek: closing must not bring a registry into being just to find it empty.
    if (auto* connections = registrySlot().peek())
        for (auto& connection : connections->all()) connection->close();
}

int DatabaseConnection::exec(const char* sql, std::string* error) {
    char* message = nullptr;
    const int rc = sqlite3_exec(db_, sql, nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        std::string text = message ? message : sqlite3_errmsg(db_);
        if (isCorruptionCode(rc) && damage_.empty()) damage_ = text;
        lastFailure = text;
        if (error) *error = std::move(text);
    }
    sqlite3_free(message);
    return rc;
}

int DatabaseConnection::userVersion(std::uint64_t* generation) {
    Locked locked(*this);
    int version = -1;
    bool ok = false;
    try {
        static const std::string kQuery = "PRAGMA user_version";
        RowHandler read = [&](const DatabaseRow& row) { version = static_cast<int>(row.int64ForColumnIndex(0)); };
        ok = run(kQuery, {}, &read);
    } catch (...) {
        ok = false;
    }
    recoverIfDamaged();
    if (!ok) return -1;
    if (generation) *generation = generation_;
    return version;
}

void DatabaseConnection::markSchemaChecked(std::uint64_t generation) {
    Locked locked(*this);
    if (db_ && generation == generation_) schemaChecked_.store(true, std::memory_order_release);
}

void DatabaseConnection::closeAndRun(const std::function<void()>& whileClosed) {
    Locked locked(*this);
    closeLocked();
    if (whileClosed) {
        try {
            whileClosed();
        } catch (...) {
        }
    }
}

bool DatabaseConnection::ensureOpen() {
    if (db_) return true;
    auto directory = parentDirectory(path_);
    if (!directory.empty()) {
        auto created = platform().files->createDirectories(directory);
        if (!created) {
            reportFailure("cannot create the directory for", created.error, kDirectoryFailure);
            return false;
        }
    }
    std::string damage, kind;
    if (sqlite3* handle = openFile(damage, kind)) {
        db_ = handle;
        ++generation_;
        damage_.clear();
        fastSecureDelete_ = false;
        return true;
    }
    if (!damage.empty()) replaceDamagedFile(damage, kind);
    return db_ != nullptr;
}

sqlite3* DatabaseConnection::openFile(std::string& damage, std::string& kind) {
    sqlite3* handle = nullptr;
    auto fail = [&](const std::string& error, int rc) -> sqlite3* {
        if (handle && isCorruptionCode(rc)) {
            // Leave the file and its WAL exactly as found: they go aside as evidence.
            sqlite3_db_config(handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
            damage = error;
            if (kind.empty()) kind = "corrupt";
        } else {
            reportFailure("cannot open", error, rc & 0xff);
        }
        sqlite3_close(handle);
        return nullptr;
    };
    int rc = sqlite3_open_v2(path_.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                             nullptr);
    if (rc != SQLITE_OK) return fail(handle ? sqlite3_errmsg(handle) : sqlite3_errstr(rc), rc);
    sqlite3_busy_timeout(handle, kBusyTimeoutMs);
    // WAL. For the database, synchronous=NORMAL commits without an fsync (the WAL is
    // synced at checkpoints): a commit costs writes, not a flush, and survives the
    // process being killed (only a power loss can take the newest commits); a file
    // whose every commit must survive that too (the outbox) syncs each one (FULL).
    // 4 KiB pages: the fence listing line of a large zone spans many pages, and with
    // the writes of one location update grouped into one commit the small rows share
    // pages anyway (page_size only takes effect on a file that has no pages yet). A
    // checkpoint every 4,000 pages (16 MB of WAL) makes its two fsyncs rare.
    char* message = nullptr;
    const std::string settings = std::string("PRAGMA page_size=4096; PRAGMA journal_mode=WAL; PRAGMA synchronous=") +
                                 (file_.syncEachCommit ? "FULL" : "NORMAL") + "; PRAGMA wal_autocheckpoint=4000;";
    rc = sqlite3_exec(handle, settings.c_str(), nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        std::string error = message ? message : sqlite3_errmsg(handle);
        sqlite3_free(message);
        return fail(error, rc);
    }
    // Once per open (the handle then stays open): a damaged file found now is set
    // aside before anything is written to it. Reads the whole file, a fraction of a
    // second for a large one.
    if (auto problem = quickCheckProblem(handle)) return fail(*problem, SQLITE_CORRUPT);
    // Whatever file is found at the path (the first, or a new one after the old was
    // moved away) gets the schema before anyone writes to it, so a writer that raced
    // a move never meets a file without tables.
    int version = -1;
    sqlite3_exec(
        handle, "PRAGMA user_version",
        [](void* out, int, char** values, char**) {
            *static_cast<int*>(out) = values[0] ? std::atoi(values[0]) : -1;
            return 0;
        },
        &version, nullptr);
    if (file_.setAsideNewer && version > file_.version) {
        kind = "newer";
        return fail("schema version " + std::to_string(version) + " is newer than " + std::to_string(file_.version),
                    SQLITE_NOTADB);
    }
    if (version < file_.version) {
        // A file that cannot take its schema now (a full disk) is not used without
        // it: the open fails, and the next call tries again.
        const std::string schema = "BEGIN;" + file_.schema + "COMMIT;";
        if ((rc = sqlite3_exec(handle, schema.c_str(), nullptr, nullptr, &message)) != SQLITE_OK) {
            std::string error = message ? message : sqlite3_errmsg(handle);
            sqlite3_free(message);
            sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr);
            return fail(error, rc);
        }
    }
    sqlite3_update_hook(handle, &DatabaseConnection::rowChanged, this);
    return handle;
}

void DatabaseConnection::replaceDamagedFile(const std::string& damage, const std::string& kind) {
    SetAside aside{path_, kind, damage, std::nullopt, {}};
    aside.movedTo = moveDatabaseAside(path_, kind, &aside.error);
    if (!aside.movedTo) {
        const bool first = reportFailure("cannot move aside the damaged", aside.error + " (" + damage + ")",
                                         kMoveAsideFailure);
        if (first && file_.onSetAside) notice([tell = file_.onSetAside, aside] { tell(aside); });
        return;
    }
    std::string again, againKind;
    sqlite3* fresh = openFile(again, againKind);
    if (fresh) {
        db_ = fresh;
        ++generation_;
        damage_.clear();
        fastSecureDelete_ = false;
        replacements_.fetch_add(1, std::memory_order_acq_rel);
        if (file_.firstRow)
            if (auto row = file_.firstRow(aside)) run(row->sql, row->args, nullptr);
    }
    // A new file that is damaged at once is not chased further; the move is told of anyway.
    if (file_.onSetAside) notice([tell = file_.onSetAside, aside] { tell(aside); });
}

void DatabaseConnection::recoverIfDamaged() {
    if (damage_.empty()) return;
    const auto damage = std::exchange(damage_, {});
    try {
        closeLocked(true);
        replaceDamagedFile(damage);
    } catch (...) {
    }
}

void DatabaseConnection::closeLocked(bool damaged) {
    schemaChecked_.store(false, std::memory_order_release);
    if (!db_) return;
    if (damaged) {
        groupTransaction_ = false;
        groupWrites_ = 0;
    } else {
        // What the open groups wrote so far is kept; their later writes start anew on
        // whatever file the next open finds.
        if (groupTransaction_) commitWriteGroup();
        if (!inTransaction()) trimRows(true);
    }
    for (auto& [sql, statement] : statements_) sqlite3_finalize(statement.handle);
    statements_.clear();
    if (damaged) {
        sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    } else {
        // Folds the WAL into the file and empties it, so the file can be moved or
        // copied on its own; the last close then deletes the -wal and -shm files.
        sqlite3_exec(db_, "PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr);
    }
    sqlite3_close(db_);
    db_ = nullptr;
}

DatabaseConnection::Statement* DatabaseConnection::prepare(const std::string& sql) {
    if (auto found = statements_.find(sql); found != statements_.end()) return &found->second;
    sqlite3_stmt* handle = nullptr;
    int rc = sqlite3_prepare_v3(db_, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &handle,
                                nullptr);
    if (rc != SQLITE_OK || !handle) {
        const std::string error = rc != SQLITE_OK ? sqlite3_errmsg(db_) : "empty statement";
        if (isCorruptionCode(rc) && damage_.empty()) damage_ = error;
        reportFailure("cannot prepare a statement on", error, rc & 0xff);
        sqlite3_finalize(handle);
        return nullptr;
    }
    if (statements_.size() >= kMaxCachedStatements) {
        for (auto& [text, statement] : statements_) sqlite3_finalize(statement.handle);
        statements_.clear();
    }
    auto& entry = statements_[sql];
    entry.handle = handle;
    return &entry;
}

bool DatabaseConnection::bind(Statement& statement, const SqlValues& args) {
    int expected = sqlite3_bind_parameter_count(statement.handle);
    if (expected != static_cast<int>(args.size())) {
        reportFailure("wrong number of values for a statement on",
                      std::to_string(args.size()) + " given, " + std::to_string(expected) + " expected",
                      kBindFailure);
        return false;
    }
    for (int i = 0; i < expected; ++i) {
        int rc = std::visit(
            [&](const auto& value) {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, std::nullptr_t>) {
                    return sqlite3_bind_null(statement.handle, i + 1);
                } else if constexpr (std::is_same_v<T, std::int64_t>) {
                    return sqlite3_bind_int64(statement.handle, i + 1, value);
                } else if constexpr (std::is_same_v<T, double>) {
                    return sqlite3_bind_double(statement.handle, i + 1, value);
                } else {
                    // The values outlive the step: the statement is reset before run() returns.
                    return sqlite3_bind_text64(statement.handle, i + 1, value.data(), value.size(), SQLITE_STATIC,
                                               SQLITE_UTF8);
                }
            },
            args[static_cast<std::size_t>(i)]);
        if (rc != SQLITE_OK) {
            reportFailure("cannot bind a value on", sqlite3_errmsg(db_), rc & 0xff);
            return false;
        }
    }
    return true;
}

bool DatabaseConnection::run(const std::string& sql, const SqlValues& args, const RowHandler* row) {
    if (!ensureOpen()) return false;
    Statement* statement = prepare(sql);
    if (!statement) return false;
    sqlite3_stmt* handle = statement->handle;
    struct Reset {
        sqlite3_stmt* handle;
        ~Reset() {
            sqlite3_reset(handle);
            sqlite3_clear_bindings(handle);
        }
    } reset{handle};

    if (!bind(*statement, args)) return false;

    int rc;
    while ((rc = sqlite3_step(handle)) == SQLITE_ROW) {
        if (!row || !*row) continue;
        int count = sqlite3_column_count(handle);
        if (statement->columns.size() != static_cast<std::size_t>(count)) {
            statement->columns.clear();
            for (int i = 0; i < count; ++i) {
                const char* name = sqlite3_column_name(handle, i);
                statement->columns.emplace_back(name ? name : "");
            }
        }
        (*row)(StatementRow(handle, statement->columns));
    }
    if (rc != SQLITE_DONE) {
        const std::string error = sqlite3_errmsg(db_);
        if (isCorruptionCode(rc) && damage_.empty()) damage_ = error;
        reportFailure("cannot run a statement on", error, rc & 0xff);
        return false;
    }
    if (!sqlite3_stmt_readonly(handle) && !inTransaction()) committed();
    return true;
}

bool DatabaseConnection::reportFailure(const std::string& what, const std::string& detail, int kind) {
    lastFailure = detail;
    if (!reportedKinds_.insert(kind).second) return false;
    notice([line = file_.label + ": " + what + " " + path_ + ": " + detail] { platform().console->warn(line); });
    return true;
}

} // namespace bvgeo
