#include "server/TriggerStore.hpp"

#include "datastore/SqliteStatement.hpp"

#include <sqlite3.h>

#include <filesystem>
#include <system_error>

namespace bvgeo {

using sqlite::bindText;
using sqlite::columnText;
using sqlite::StatementReset;

namespace {

// Another process reading the file (sqlite3 on the command line while a run goes
// on) may hold a lock for a moment; wait for it rather than drop a trigger.
constexpr int kBusyTimeoutMs = 5000;

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS triggers ("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " app_id TEXT NOT NULL,"
    " device_id TEXT NOT NULL,"
    " event TEXT NOT NULL,"
    " timestamp INTEGER NOT NULL,"
    " fence_id TEXT NOT NULL,"
    " sdk_version TEXT NOT NULL,"
    " received_at INTEGER NOT NULL);"
    "CREATE INDEX IF NOT EXISTS triggers_by_app ON triggers (app_id, id);";

// Files made before reports carried a key gain the two columns.
constexpr const char* kKeyColumns[] = {"ALTER TABLE triggers ADD COLUMN idempotency_key TEXT",
                                        "ALTER TABLE triggers ADD COLUMN duplicates INTEGER NOT NULL DEFAULT 0"};
constexpr const char* kKeyIndex = "CREATE UNIQUE INDEX IF NOT EXISTS triggers_by_key ON triggers (app_id, "
                                  "idempotency_key) WHERE idempotency_key IS NOT NULL";

// A repeated key touches only its row's counter; RETURNING tells whether there was one.
constexpr const char* kCountDuplicate =
    "UPDATE triggers SET duplicates = duplicates + 1 WHERE app_id = ?1 AND idempotency_key = ?2 RETURNING id";

constexpr const char* kInsert =
    "INSERT INTO triggers (app_id, device_id, event, timestamp, fence_id, sdk_version, received_at,"
    " idempotency_key) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)";

constexpr const char* kSelectByApp =
    "SELECT id, app_id, device_id, event, timestamp, fence_id, sdk_version, received_at, idempotency_key,"
    " duplicates FROM triggers WHERE app_id = ?1 ORDER BY id";

} // namespace

TriggerStore::~TriggerStore() { close(); }

bool TriggerStore::open(const std::string& path) {
    std::lock_guard lock(mutex_);
    closeLocked();
    lastError_.clear();

    auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) {
        std::error_code ignored; // sqlite3_open_v2 reports the failure that matters
        std::filesystem::create_directories(parent, ignored);
    }

    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK)
        return fail("cannot open " + path);
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    // WAL lets a reader in another process look at the table while triggers arrive.
    if (sqlite3_exec(db_, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr) != SQLITE_OK)
        return fail("cannot switch " + path + " to WAL");
    if (sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK)
        return fail("cannot create the triggers table in " + path);
    for (const char* column : kKeyColumns) sqlite3_exec(db_, column, nullptr, nullptr, nullptr); // there already: fine
    if (sqlite3_exec(db_, kKeyIndex, nullptr, nullptr, nullptr) != SQLITE_OK)
        return fail("cannot index idempotency keys in " + path);
    if (sqlite3_prepare_v2(db_, kInsert, -1, &insert_, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db_, kSelectByApp, -1, &selectByApp_, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db_, kCountDuplicate, -1, &countDuplicate_, nullptr) != SQLITE_OK)
        return fail("cannot prepare statements on " + path);
    return true;
}

void TriggerStore::close() {
    std::lock_guard lock(mutex_);
    closeLocked();
}

bool TriggerStore::isOpen() const {
    std::lock_guard lock(mutex_);
    return db_ != nullptr;
}

std::optional<StoreOutcome> TriggerStore::insert(const StoredTrigger& trigger) {
    std::lock_guard lock(mutex_);
    if (!db_) {
        lastError_ = "trigger store is not open";
        return std::nullopt;
    }
    if (!trigger.idempotencyKey.empty()) {
        // The mutex makes the look-up and the insert below one step; the unique index
        // guards the file against any other writer.
        StatementReset resetCount(countDuplicate_);
        if (!bindText(countDuplicate_, 1, trigger.appId) || !bindText(countDuplicate_, 2, trigger.idempotencyKey)) {
            lastError_ = std::string("cannot store trigger: ") + sqlite3_errmsg(db_);
            return std::nullopt;
        }
        int step = sqlite3_step(countDuplicate_);
        if (step == SQLITE_ROW) {
            StoreOutcome outcome{sqlite3_column_int64(countDuplicate_, 0), true};
            while (sqlite3_step(countDuplicate_) == SQLITE_ROW) {
            }
            return outcome;
        }
        if (step != SQLITE_DONE) {
            lastError_ = std::string("cannot store trigger: ") + sqlite3_errmsg(db_);
            return std::nullopt;
        }
    }
    StatementReset reset(insert_);
    bool bound = bindText(insert_, 1, trigger.appId) && bindText(insert_, 2, trigger.deviceId) &&
                 bindText(insert_, 3, trigger.event) &&
                 sqlite3_bind_int64(insert_, 4, trigger.timestamp) == SQLITE_OK &&
                 bindText(insert_, 5, trigger.fenceId) && bindText(insert_, 6, trigger.sdkVersion) &&
                 sqlite3_bind_int64(insert_, 7, trigger.receivedAt) == SQLITE_OK &&
                 (trigger.idempotencyKey.empty() ? sqlite3_bind_null(insert_, 8) == SQLITE_OK
                                                 : bindText(insert_, 8, trigger.idempotencyKey));
    if (!bound || sqlite3_step(insert_) != SQLITE_DONE) {
        lastError_ = std::string("cannot store trigger: ") + sqlite3_errmsg(db_);
        return std::nullopt;
    }
    return StoreOutcome{sqlite3_last_insert_rowid(db_), false};
}

std::optional<std::vector<StoredTrigger>> TriggerStore::triggersForApp(const std::string& appId) {
    std::lock_guard lock(mutex_);
    if (!db_) {
        lastError_ = "trigger store is not open";
        return std::nullopt;
    }
    StatementReset reset(selectByApp_);
    if (!bindText(selectByApp_, 1, appId)) {
        lastError_ = std::string("cannot read triggers: ") + sqlite3_errmsg(db_);
        return std::nullopt;
    }
    std::vector<StoredTrigger> out;
    int step;
    while ((step = sqlite3_step(selectByApp_)) == SQLITE_ROW) {
        StoredTrigger row;
        row.id = sqlite3_column_int64(selectByApp_, 0);
        row.appId = columnText(selectByApp_, 1);
        row.deviceId = columnText(selectByApp_, 2);
        row.event = columnText(selectByApp_, 3);
        row.timestamp = sqlite3_column_int64(selectByApp_, 4);
        row.fenceId = columnText(selectByApp_, 5);
        row.sdkVersion = columnText(selectByApp_, 6);
        row.receivedAt = sqlite3_column_int64(selectByApp_, 7);
        row.idempotencyKey = columnText(selectByApp_, 8);
        row.duplicates = sqlite3_column_int64(selectByApp_, 9);
        out.push_back(std::move(row));
    }
    if (step != SQLITE_DONE) {
        lastError_ = std::string("cannot read triggers: ") + sqlite3_errmsg(db_);
        return std::nullopt;
    }
    return out;
}

std::string TriggerStore::lastError() const {
    std::lock_guard lock(mutex_);
    return lastError_;
}

void TriggerStore::closeLocked() {
    sqlite3_finalize(insert_);
    sqlite3_finalize(selectByApp_);
    sqlite3_finalize(countDuplicate_);
    insert_ = nullptr;
    selectByApp_ = nullptr;
    countDuplicate_ = nullptr;
    // sqlite3_close_v2 is harmless on null and defers if anything is still live.
    sqlite3_close_v2(db_);
    db_ = nullptr;
}

bool TriggerStore::fail(const std::string& what) {
    lastError_ = what + (db_ ? std::string(": ") + sqlite3_errmsg(db_) : std::string());
    closeLocked();
    return false;
}

} // namespace bvgeo
