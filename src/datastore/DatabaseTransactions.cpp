// DatabaseConnection's transactions: single statements, atomic batches, the write
// groups that share one commit (and the commits they hand on), and durable units.
// Everything here runs with the connection's mutex held, as the rest of the class
// does.
#include "datastore/DatabaseConnection.hpp"

#include "datastore/BV1Database.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <exception>

namespace bvgeo {

namespace {
// Under sustained load from several threads the groups may never all be closed at
// once; a commit after this many writes keeps the open transaction short anyway.
constexpr int kMaxWritesPerGroupCommit = 256;
} // namespace

bool DatabaseConnection::executeStatements(const std::string& sql, bool atomic) {
    Locked locked(*this);
    bool ok = false;
    try {
        if (ensureOpen()) {
            settleHeldCommit();
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
    Locked locked(*this);
    bool begun = false, nested = false, ok = false;
    try {
        if (ensureOpen()) {
            refreshRowLimits();
            settleHeldCommit();
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
    Locked locked(*this);
    bool ok = false;
    try {
        if (ensureOpen()) {
            refreshRowLimits();
            settleHeldCommit();
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
    Locked locked(*this);
    ++openGroups_;
}

void DatabaseConnection::endWriteGroup() {
    Locked locked(*this);
    if (openGroups_ > 0) --openGroups_;
    const bool handedOn =
        std::find(holders_.begin(), holders_.end(), std::this_thread::get_id()) != holders_.end();
    if (groupTransaction_ && ((openGroups_ == 0 && !handedOn) || groupWrites_ >= kMaxWritesPerGroupCommit))
        commitWriteGroup();
    recoverIfDamaged();
}

void DatabaseConnection::holdCommit(std::thread::id holder) {
    Locked locked(*this);
    holders_.push_back(holder);
}

namespace {
void dropOne(std::vector<std::thread::id>& holders, std::thread::id holder) {
    if (auto found = std::find(holders.begin(), holders.end(), holder); found != holders.end()) holders.erase(found);
}
} // namespace

void DatabaseConnection::adoptHeldCommit(std::thread::id holder) {
    Locked locked(*this);
    dropOne(holders_, holder);
    ++openGroups_;
}

void DatabaseConnection::releaseHeldCommit(std::thread::id holder) {
    Locked locked(*this);
    dropOne(holders_, holder);
    if (groupTransaction_ && openGroups_ == 0 && holders_.empty()) commitWriteGroup();
    recoverIfDamaged();
}

void DatabaseConnection::settleHeldCommit() {
    // No group is open, yet their transaction is: it waits for a PendingCommit's
    // adopter. A write of anyone else's must neither join it nor wait for it.
    if (openGroups_ == 0 && groupTransaction_) commitWriteGroup();
}

bool DatabaseConnection::executeDurable(const std::vector<SqlStatement>& statements) {
    Locked locked(*this);
    bool ok = false;
    try {
        if (ensureOpen()) {
            refreshRowLimits();
            std::string error;
            int rc = SQLITE_OK;
            // The groups' transaction when one is open, so their rows reach the disk in
            // the same commit; otherwise one of the unit's own.
            const bool own = !inTransaction();
            if (own && (rc = exec("BEGIN IMMEDIATE", &error)) != SQLITE_OK) {
                reportFailure("cannot begin a transaction on", error, rc & 0xff);
            } else if ((rc = exec("SAVEPOINT bvgeo_durable", &error)) != SQLITE_OK) {
                reportFailure("cannot begin a transaction on", error, rc & 0xff);
                if (own && inTransaction()) exec("ROLLBACK");
            } else {
                ok = true;
                for (const auto& statement : statements)
                    if (!(ok = run(statement.sql, statement.args, nullptr))) break;
                if (ok) {
                    trimRows(false);
                    if ((rc = exec("COMMIT", &error)) != SQLITE_OK) {
                        reportFailure("cannot commit on", error, rc & 0xff);
                        ok = false;
                    }
                }
                if (ok) {
                    committed();
                } else if (inTransaction()) {
                    // Only the unit's statements go; what the groups wrote before it stays
                    // for their commit. Should the savepoint be gone with a failed commit,
                    // the disk failed under the whole transaction and it all goes.
                    if (exec("ROLLBACK TO bvgeo_durable") == SQLITE_OK)
                        exec("RELEASE bvgeo_durable");
                    else
                        exec("ROLLBACK");
                    if (own && inTransaction()) exec("ROLLBACK");
                }
            }
            groupTransaction_ = inTransaction();
            if (!groupTransaction_) groupWrites_ = 0;
        }
    } catch (...) {
        ok = false;
    }
    recoverIfDamaged();
    return ok;
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
    Locked locked(*this);
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

PendingCommit::PendingCommit()
    : connection_(DatabaseConnection::forPath(BV1Database().path())), holder_(std::this_thread::get_id()) {
    connection_->holdCommit(holder_);
}

PendingCommit::PendingCommit(PendingCommit&& other) noexcept
    : connection_(std::move(other.connection_)), holder_(other.holder_) {}

PendingCommit::~PendingCommit() {
    if (connection_) connection_->releaseHeldCommit(holder_);
}

WriteGroup::WriteGroup() : connection_(DatabaseConnection::forPath(BV1Database().path())) {
    connection_->beginWriteGroup();
}

WriteGroup::WriteGroup(PendingCommit&& handedOn) : connection_(std::move(handedOn.connection_)) {
    if (connection_)
        connection_->adoptHeldCommit(handedOn.holder_);
    else
        (connection_ = DatabaseConnection::forPath(BV1Database().path()))->beginWriteGroup();
}

WriteGroup::~WriteGroup() { connection_->endWriteGroup(); }

bool DurableWrite::commit() {
    if (committed_) return false;
    committed_ = true;
    BV1Database database;
    return DatabaseConnection::forPath(database.path())->executeDurable(statements_);
}

} // namespace bvgeo
