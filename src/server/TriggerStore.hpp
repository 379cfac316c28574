// TriggerStore: the reference server's record of every trigger it accepted, in a
// SQLite file of its own (never the library's database). It owns one connection
// and its two prepared statements; a mutex held for the length of each call
// serialises them, so any thread may call it. A report that carries an idempotency
// key is stored once per key and app; repeats are counted on its row. Row ids grow with arrival, which is
// what "arrival order" means for a listing. A caller must open() it before use;
// until then, and after a failed open, every call fails without touching disk.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace bvgeo {

struct StoredTrigger {
    std::int64_t id = 0; // assigned by insert()
    std::string appId;
    std::string deviceId;
    std::string event;
    std::int64_t timestamp = 0;
    std::string fenceId;
    std::string sdkVersion;
    std::int64_t receivedAt = 0; // seconds since 1970
    std::string idempotencyKey;  // empty: the sender gave none
    std::int64_t duplicates = 0; // later arrivals of the same key, not stored again
};

struct StoreOutcome {
    std::int64_t id = 0;    // the row that holds the report
    bool duplicate = false; // the key was stored already; nothing new was written
};

class TriggerStore {
public:
    TriggerStore() = default;
    ~TriggerStore();

    TriggerStore(const TriggerStore&) = delete;
    TriggerStore& operator=(const TriggerStore&) = delete;

    // Opens (creating file, directory and table as needed) the store at `path`.
    // On failure returns false and leaves the reason in lastError().
    bool open(const std::string& path);
    void close();
    bool isOpen() const;

    // Stores the trigger, once per (app, idempotency key): a key that is there
    // already only counts one more duplicate on its row. Nothing when the write
    // failed (see lastError()).
    std::optional<StoreOutcome> insert(const StoredTrigger& trigger);
    // Every trigger of `appId` in arrival order; nothing when the read failed.
    std::optional<std::vector<StoredTrigger>> triggersForApp(const std::string& appId);

    std::string lastError() const;

private:
    void closeLocked();
    bool fail(const std::string& what);

    mutable std::mutex mutex_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* insert_ = nullptr;
    sqlite3_stmt* selectByApp_ = nullptr;
    sqlite3_stmt* countDuplicate_ = nullptr;
    std::string lastError_;
};

} // namespace bvgeo
