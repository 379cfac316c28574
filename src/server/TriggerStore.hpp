// TriggerStore: the reference server's record of every trigger it accepted, in a
// SQLite file of its own (never the library's database). It owns one connection
// and its two prepared statements; a mutex held for the length of each call
// serialises them, so any thread may call it. Row ids grow with arrival, which is
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

    // The new row's id, or nothing when the write failed (see lastError()).
    std::optional<std::int64_t> insert(const StoredTrigger& trigger);
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
    std::string lastError_;
};

} // namespace bvgeo
