// DatabaseConnection's transactions: single statements, atomic batches, the write
// groups that share one commit, and the durable units inside them. Everything here
// runs with the connection's mutex held, as the rest of the class does.
#include "datastore/DatabaseConnection.hpp"

#include "datastore/BV1Database.hpp"

#include <sqlite3.h>

#include <exception>

namespace bvgeo {

namespace {
// Under sustained load from several threads the groups may never all be closed at
// once; a commit after this many writes keeps the open transaction short anyway.
constexpr int kMaxWritesPerGroupCommit = 256;
} // namespace

bool DatabaseConnection::executeStatements(const std::string& sql, bool atomic) {
    std::lock_guard lock(mutex_);
    bool ok = false;
    try {
        if (ensureOpen()) {
            std::string error;
            int rc = SQLITE_OK;
            auto step = [&](const char* text) { return (rc = exec(text, &error)) == SQLITE_OK; };
            if (atomic && inTransaction()) {
                // Nested in a write group's transaction: a savepoint gives the same all-or-none.
                const bool begun = step("SAVEPOINT bvgeo_atomic");
                ok = begun && step(sql.c_str());
                if (ok) ok = step("RELEASE bvgeo_atomic");
                if (begun && !ok && inTransaction()) {
                    exec("ROLLBACK TO bvgeo_atomic");
                    exec("RELEASE bvgeo_atomic");
                }
            } else if (atomic) {
                ok = step("BEGIN IMMEDIATE") && step(sql.c_str());
                if (ok) ok = step("COMMIT");
                if (!ok && inTransaction()) exec("ROLLBACK");
            } else {
                ok = step(sql.c_str());
            }
            if (!ok)
                reportFailure("cannot run statements on", error, rc & 0xff);
            else if (!inTransaction())
                committed();
        }
    } catch (...) {
        ok = false;
    }
    recoverIfDamaged();
    return ok;
}

bool DatabaseConnection::executeBatch(const std::vector<SqlStatement>& statements) {
    std::lock_guard lock(mutex_);
    bool begun = false, nested = false, ok = false;
    try {
        if (ensureOpen()) {
            refreshRowLimits();
            joinWriteGroup();
            // Inside a write group's transaction a savepoint gives the same all-or-none.
            nested = inTransaction();
            std::string error;
            int rc = exec(nested ? "SAVEPOINT bvgeo_batch" : "BEGIN IMMEDIATE", &error);
            if (rc != SQLITE_OK) {
                reportFailure("cannot begin a transaction on", error, rc & 0xff);
            } else {
                begun = ok = true;
                for (const auto& statement : statements)
                    if (!(ok = run(statement.sql, statement.args, nullptr))) break;
                if (ok && !nested) trimRows(false);
                if (ok && (rc = exec(nested ? "RELEASE bvgeo_batch" : "COMMIT", &error)) != SQLITE_OK) {
                    reportFailure("cannot commit on", error, rc & 0xff);
                    ok = false;
                }
                if (ok && !nested) committed();
                if (!ok) undoBatch(nested);
            }
        }
    } catch (const std::exception&) {
        if (begun) undoBatch(nested);
        ok = false;
    }
    recoverIfDamaged();
    return ok;
}

void DatabaseConnection::undoBatch(bool nested) {
    if (!inTransaction()) return; // SQLite already rolled everything back
    if (nested) {
        exec("ROLLBACK TO bvgeo_batch");
        exec("RELEASE bvgeo_batch");
    } else {
        exec("ROLLBACK");
    }
}

bool DatabaseConnection::executeUpdate(const std::string& sql, const SqlValues& args) {
    std::lock_guard lock(mutex_);
    bool ok = false;
    try {
        if (ensureOpen()) {
            refreshRowLimits();
            joinWriteGroup();
            if (!inTransaction() && trimDue(1)) {
                // The insert that makes a trim due and the trim share one commit.
                std::string error;
                int rc = exec("BEGIN IMMEDIATE", &error);
                ok = rc == SQLITE_OK && run(sql, args, nullptr);
                if (ok) {
                    trimRows(false);
                    if ((rc = exec("COMMIT", &error)) != SQLITE_OK) {
                        reportFailure("cannot commit on", error, rc & 0xff);
                        ok = false;
                    }
                } else if (rc != SQLITE_OK) {
                    reportFailure("cannot begin a transaction on", error, rc & 0xff);
                }
                if (ok) committed();
                if (!ok && inTransaction()) exec("ROLLBACK");
            } else {
                ok = run(sql, args, nullptr);
            }
        }
    } catch (...) {
        ok = false;
    }
    recoverIfDamaged();
    return ok;
}

void DatabaseConnection::beginWriteGroup() {
    std::lock_guard lock(mutex_);
    ++openGroups_;
}

void DatabaseConnection::endWriteGroup() {
    std::lock_guard lock(mutex_);
    if (openGroups_ > 0) --openGroups_;
    // An open durable unit commits the transaction itself, savepoint and all.
    if (groupTransaction_ && !durableOpen_ && (openGroups_ == 0 || groupWrites_ >= kMaxWritesPerGroupCommit))
        commitWriteGroup();
    recoverIfDamaged();
}

void DatabaseConnection::beginDurable() {
    std::lock_guard lock(mutex_);
    durableOpen_ = true;
    durableFailed_ = false;
    durableOwnTransaction_ = false;
    try {
        if (!ensureOpen()) {
            durableFailed_ = true;
        } else {
            durableGeneration_ = generation_;
            std::string error;
            int rc = SQLITE_OK;
            if (!inTransaction()) {
                // The unit's transaction is the groups' when any is open, so their rows
                // go to disk with it; otherwise it is the unit's own.
                if ((rc = exec("BEGIN IMMEDIATE", &error)) == SQLITE_OK) {
                    if (openGroups_ > 0) {
                        groupTransaction_ = true;
                        groupWrites_ = 0;
                    } else {
                        durableOwnTransaction_ = true;
                    }
                }
            }
            if (rc == SQLITE_OK) rc = exec("SAVEPOINT bvgeo_durable", &error);
            if (rc != SQLITE_OK) reportFailure("cannot begin a transaction on", error, rc & 0xff);
        }
    } catch (...) {
        durableFailed_ = true;
    }
    recoverIfDamaged();
}

bool DatabaseConnection::commitDurable() {
    std::lock_guard lock(mutex_);
    if (!durableOpen_) return false;
    bool ok = !durableFailed_ && db_ && generation_ == durableGeneration_ && inTransaction();
    try {
        if (ok) ok = exec("RELEASE bvgeo_durable") == SQLITE_OK;
        if (ok) {
            trimRows(false);
            std::string error;
            const int rc = exec("COMMIT", &error);
            ok = rc == SQLITE_OK;
            if (ok)
                committed();
            else
                reportFailure("cannot commit on", error, rc & 0xff);
            if (inTransaction()) exec("ROLLBACK");
            groupTransaction_ = false;
            groupWrites_ = 0;
            durableOwnTransaction_ = false;
        }
    } catch (...) {
        ok = false;
    }
    if (!ok) undoDurable();
    durableOpen_ = false;
    recoverIfDamaged();
    return ok;
}

void DatabaseConnection::abandonDurable() {
    std::lock_guard lock(mutex_);
    if (!durableOpen_) return;
    try {
        undoDurable();
    } catch (...) {
    }
    durableOpen_ = false;
    recoverIfDamaged();
}

void DatabaseConnection::undoDurable() {
    if (db_ && generation_ == durableGeneration_ && inTransaction()) {
        // Fails harmlessly when SQLite has already rolled the transaction back.
        if (exec("ROLLBACK TO bvgeo_durable") == SQLITE_OK) exec("RELEASE bvgeo_durable");
        if (durableOwnTransaction_ && inTransaction() && exec("COMMIT") != SQLITE_OK && inTransaction())
            exec("ROLLBACK");
    }
    if (durableOwnTransaction_) durableOwnTransaction_ = false;
}

void DatabaseConnection::joinWriteGroup(bool write) {
    if (openGroups_ == 0 || !db_) return;
    if (!groupTransaction_) {
        // IMMEDIATE takes the write lock now, so the first write of the group cannot
        // fail to upgrade a read lock another process has made stale.
        if (!sqlite3_get_autocommit(db_) ||
            sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK)
            return; // the write runs on its own, as it would outside a group
        groupTransaction_ = true;
        groupWrites_ = 0;
    }
    if (write) ++groupWrites_;
}

void DatabaseConnection::commitWriteGroup() {
    groupTransaction_ = false;
    groupWrites_ = 0;
    if (!db_ || sqlite3_get_autocommit(db_)) return; // a failed statement already ended it
    trimRows(false);
    std::string error;
    if (const int rc = exec("COMMIT", &error); rc != SQLITE_OK) {
        reportFailure("cannot commit on", error, rc & 0xff);
        if (inTransaction()) exec("ROLLBACK");
    } else {
        committed();
    }
}

bool DatabaseConnection::inTransaction() const { return db_ && !sqlite3_get_autocommit(db_); }

bool DatabaseConnection::executeQuery(const std::string& sql, const SqlValues& args, const RowHandler& row) {
    std::lock_guard lock(mutex_);
    bool ok = false;
    try {
        // Inside a group a read joins the group's transaction instead of taking and
        // dropping the file's read locks for itself.
        if (openGroups_ > 0 && ensureOpen()) joinWriteGroup(false);
        ok = run(sql, args, &row);
    } catch (...) {
        ok = false;
    }
    recoverIfDamaged();
    return ok;
}

WriteGroup::WriteGroup() : connection_(DatabaseConnection::forPath(BV1Database().path())) {
    connection_->beginWriteGroup();
}

WriteGroup::~WriteGroup() { connection_->endWriteGroup(); }

DurableWrite::DurableWrite() : connection_(DatabaseConnection::forPath(BV1Database().path())) {
    connection_->beginDurable();
}

DurableWrite::~DurableWrite() {
    if (open_) connection_->abandonDurable();
}

bool DurableWrite::commit() {
    if (!open_) return false;
    open_ = false;
    return connection_->commitDurable();
}

} // namespace bvgeo
