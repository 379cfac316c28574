// DatabaseConnection's row limits: the process-wide limits, each connection's copy
// of them, the count of rows added since the last trim, and the trim itself. Runs
// with the connection's mutex held, as the rest of the class does.
#include "datastore/DatabaseConnection.hpp"

#include "platform/SharedInstance.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <mutex>
#include <utility>

namespace bvgeo {

namespace {

// Rows added to a limited table before its oldest go: a tenth of the limit (1 to
// 1,000). The DELETE then runs once per that many inserts, or once per commit when a
// commit adds more, so the table holds at most that many rows (or one commit's worth)
// above its limit until the connection closes, which trims it to the limit. Each row
// is deleted once either way; the batch keeps the pages a DELETE rewrites few.
std::size_t trimBatch(std::size_t maxRows) { return std::clamp<std::size_t>(maxRows / 10, 1, 1000); }

// The row limits of every connection. The version changes on every change (and on a
// reset of the shared instances), so a connection re-reads them with one atomic load.
std::atomic<std::uint64_t> rowLimitsVersion{1};

struct RowLimits {
    RowLimits() { rowLimitsVersion.fetch_add(1, std::memory_order_acq_rel); }
    std::mutex mutex;
    std::vector<std::pair<std::string, std::size_t>> limits;
};

SharedInstance<RowLimits>& rowLimitsSlot() {
    static SharedInstance<RowLimits> slot;
    return slot;
}

} // namespace

void DatabaseConnection::setRowLimit(const std::string& table, std::size_t maxRows) {
    auto& shared = rowLimitsSlot().get([] { return std::make_unique<RowLimits>(); });
    {
        std::lock_guard lock(shared.mutex);
        auto& limits = shared.limits;
        auto it = std::find_if(limits.begin(), limits.end(), [&](const auto& limit) { return limit.first == table; });
        if (it != limits.end())
            it->second = maxRows;
        else
            limits.emplace_back(table, maxRows);
    }
    rowLimitsVersion.fetch_add(1, std::memory_order_acq_rel);
}

void DatabaseConnection::rowChanged(void* self, int operation, const char*, const char* table, long long) {
    if (operation != SQLITE_INSERT) return;
    for (auto& limit : static_cast<DatabaseConnection*>(self)->rowLimits_)
        if (limit.maxRows && limit.table == table) ++limit.added;
}

void DatabaseConnection::refreshRowLimits() {
    const auto version = rowLimitsVersion.load(std::memory_order_acquire);
    if (version == rowLimitsVersion_ || !file_.rowLimits) return;
    std::vector<RowLimit> fresh;
    if (auto* shared = rowLimitsSlot().peek()) {
        std::lock_guard lock(shared->mutex);
        for (const auto& [table, maxRows] : shared->limits) {
            RowLimit limit{table, maxRows, 0};
            for (const auto& old : rowLimits_)
                if (old.table == table) limit.added = old.added;
            fresh.push_back(std::move(limit));
        }
    }
    rowLimits_ = std::move(fresh);
    rowLimitsVersion_ = version;
}

bool DatabaseConnection::trimDue(std::size_t extra) {
    refreshRowLimits();
    for (const auto& limit : rowLimits_)
        if (limit.maxRows && limit.added + extra >= trimBatch(limit.maxRows)) return true;
    return false;
}

void DatabaseConnection::trimRows(bool all) {
    refreshRowLimits();
    for (auto& limit : rowLimits_) {
        if (!limit.maxRows || limit.added == 0) continue;
        if (!all && limit.added < trimBatch(limit.maxRows)) continue;
        if (!fastSecureDelete_) {
            // Debian's SQLite zeroes every freed page (secure_delete), which would double
            // the pages a trim writes; FAST still clears deleted rows where that costs no
            // extra write, and freed pages are refilled by the next rows anyway.
            exec("PRAGMA secure_delete=FAST");
            fastSecureDelete_ = true;
        }
        // Keys grow by one per row and only the oldest rows are ever deleted, so the
        // newest maxRows rows are those above max(id) - maxRows: a seek, not a count.
        const std::string sql =
            "DELETE FROM " + limit.table + " WHERE id <= (SELECT max(id) FROM " + limit.table + ") - ?";
        const auto keep = static_cast<std::int64_t>(
            std::min<std::size_t>(limit.maxRows, static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max())));
        if (run(sql, {keep}, nullptr)) limit.added = 0;
    }
}

} // namespace bvgeo
