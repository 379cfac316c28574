#include "request/Outbox.hpp"

#include "datastore/SqliteStatement.hpp"
#include "logger/Logger.hpp"
#include "settings/TrackerSettings.hpp"
#include "platform/SharedInstance.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include <ctime>

namespace bvgeo {

using sqlite::bindText;
using sqlite::columnText;

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS reports ("
    " id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " idempotency_key TEXT NOT NULL UNIQUE,"
    " url TEXT NOT NULL,"
    " method TEXT NOT NULL,"
    " headers TEXT NOT NULL,"
    " body BLOB,"
    " fence_id TEXT NOT NULL,"
    " event TEXT NOT NULL,"
    " created_at INTEGER NOT NULL);"
    "PRAGMA user_version = 1;";

// sqlite3_prepare_v2 + finalize, for the few statements each call runs.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &handle_, nullptr); }
    ~Statement() { sqlite3_finalize(handle_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    sqlite3_stmt* get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

private:
    sqlite3_stmt* handle_ = nullptr;
};

std::string headersText(const HeaderFields& headers) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& [name, value] : headers) list.push_back({name, value});
    return list.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

HeaderFields headersFromText(const std::string& text) {
    HeaderFields headers;
    auto list = nlohmann::json::parse(text, nullptr, false);
    if (!list.is_array()) return headers;
    for (const auto& field : list)
        if (field.is_array() && field.size() == 2 && field[0].is_string() && field[1].is_string())
            headers.emplace_back(field[0].get<std::string>(), field[1].get<std::string>());
    return headers;
}

std::string utcStamp(std::int64_t seconds) {
    std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
    return text;
}

void logDropped(const OutboxReport& report, const std::string& why) {
    Logger::log("Report dropped from outbox (" + why + "): " + report.event + " fenceId: " + report.fenceId,
                LogCategory::REQUESTS, "Outbox", 90);
}

// Reads the rows a SELECT of (id, idempotency_key, url, method, headers, body,
// fence_id, event, created_at) returns.
std::vector<std::pair<std::int64_t, OutboxReport>> readReports(sqlite3_stmt* statement) {
    std::vector<std::pair<std::int64_t, OutboxReport>> rows;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        OutboxReport report;
        report.key = columnText(statement, 1);
        report.request.url = columnText(statement, 2);
        report.request.method = httpMethodFromRaw(columnText(statement, 3)).value_or(HTTPMethod::POST);
        report.request.headers = headersFromText(columnText(statement, 4));
        if (sqlite3_column_type(statement, 5) != SQLITE_NULL) report.request.body = columnText(statement, 5);
        report.fenceId = columnText(statement, 6);
        report.event = columnText(statement, 7);
        report.createdAt = sqlite3_column_int64(statement, 8);
        rows.emplace_back(sqlite3_column_int64(statement, 0), std::move(report));
    }
    return rows;
}

constexpr const char* kSelectColumns =
    "SELECT id, idempotency_key, url, method, headers, body, fence_id, event, created_at FROM reports ";

} // namespace

Outbox& Outbox::sharedInstance() {
    static SharedInstance<Outbox> slot;
    return slot.get([] { return std::unique_ptr<Outbox>(new Outbox()); });
}

Outbox::~Outbox() { close(); }

std::string Outbox::path() {
    return appendPathComponent(platform().files->documentsDirectory(), std::string(kFileName));
}

bool Outbox::add(const OutboxReport& report) {
    std::lock_guard lock(mutex_);
    if (!ensureOpen()) return false;
    Statement insert(db_, "INSERT OR REPLACE INTO reports (idempotency_key, url, method, headers, body, fence_id, "
                          "event, created_at) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
    if (!insert) return false;
    const auto& request = report.request;
    bool bound = bindText(insert.get(), 1, report.key) && bindText(insert.get(), 2, request.url) &&
                 bindText(insert.get(), 3, std::string(rawValue(request.method))) &&
                 bindText(insert.get(), 4, headersText(request.headers)) &&
                 (request.body ? sqlite3_bind_blob(insert.get(), 5, request.body->data(),
                                                   static_cast<int>(request.body->size()), SQLITE_TRANSIENT)
                               : sqlite3_bind_null(insert.get(), 5)) == SQLITE_OK &&
                 bindText(insert.get(), 6, report.fenceId) && bindText(insert.get(), 7, report.event) &&
                 sqlite3_bind_int64(insert.get(), 8, report.createdAt) == SQLITE_OK;
    if (!bound || sqlite3_step(insert.get()) != SQLITE_DONE) {
        platform().console->print(std::string("Outbox: cannot store a report: ") + sqlite3_errmsg(db_));
        return false;
    }
    applyBounds();
    return true;
}

void Outbox::remove(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (!ensureOpen()) return;
    Statement erase(db_, "DELETE FROM reports WHERE idempotency_key = ?1");
    if (erase && bindText(erase.get(), 1, key)) sqlite3_step(erase.get());
}

std::vector<OutboxReport> Outbox::pending() {
    std::lock_guard lock(mutex_);
    std::vector<OutboxReport> reports;
    if (!ensureOpen()) return reports;
    applyBounds();
    Statement select(db_, (std::string(kSelectColumns) + "ORDER BY id").c_str());
    if (!select) return reports;
    for (auto& [id, report] : readReports(select.get())) reports.push_back(std::move(report));
    return reports;
}

std::size_t Outbox::count() {
    std::lock_guard lock(mutex_);
    if (!ensureOpen()) return 0;
    Statement select(db_, "SELECT count(*) FROM reports");
    if (!select || sqlite3_step(select.get()) != SQLITE_ROW) return 0;
    return static_cast<std::size_t>(sqlite3_column_int64(select.get(), 0));
}

void Outbox::close() {
    std::lock_guard lock(mutex_);
    closeLocked();
}

void Outbox::closeLocked() {
    sqlite3_close_v2(db_);
    db_ = nullptr;
}

bool Outbox::ensureOpen() {
    if (db_) return true;
    const std::string file = path();
    std::string problem;
    if (openFile(file, problem)) return true;
    if (problem.empty()) return false; // nothing wrong with the file: the directory, say
    // The file is damaged or newer than this library: keep it for inspection and
    // go on with a fresh one.
    moveAside(file, problem.starts_with("schema") ? "newer" : "corrupt", problem);
    problem.clear();
    if (openFile(file, problem)) return true;
    platform().console->print("Outbox: cannot open " + file + (problem.empty() ? "" : ": " + problem));
    return false;
}

// Opens `file` and makes sure it holds the outbox table of this version. Leaves
// `problem` empty when the failure is not the file's fault.
bool Outbox::openFile(const std::string& file, std::string& problem) {
    platform().files->createDirectories(platform().files->documentsDirectory());
    if (sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        platform().console->print("Outbox: cannot open " + file + ": " + (db_ ? sqlite3_errmsg(db_) : "no memory"));
        closeLocked();
        return false;
    }
    sqlite3_busy_timeout(db_, 5000);
    auto fileFault = [&](const std::string& what) {
        const int code = sqlite3_errcode(db_);
        if (code == SQLITE_NOTADB || code == SQLITE_CORRUPT || !what.empty()) problem = what.empty() ? sqlite3_errmsg(db_) : what;
        closeLocked();
        return false;
    };
    // Every report is synced at its commit: a report is written so that it survives.
    if (sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL", nullptr, nullptr, nullptr) != SQLITE_OK)
        return fileFault("");
    {
        Statement check(db_, "PRAGMA quick_check");
        if (!check) return fileFault("");
        if (sqlite3_step(check.get()) != SQLITE_ROW) return fileFault("");
        if (auto result = columnText(check.get(), 0); result != "ok") return fileFault(result);
    }
    int version = 0;
    {
        Statement read(db_, "PRAGMA user_version");
        if (!read || sqlite3_step(read.get()) != SQLITE_ROW) return fileFault("");
        version = sqlite3_column_int(read.get(), 0);
    }
    if (version > kSchemaVersion)
        return fileFault("schema version " + std::to_string(version) + " is newer than " +
                         std::to_string(kSchemaVersion));
    if (version < kSchemaVersion && sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK)
        return fileFault("");
    return true;
}

void Outbox::moveAside(const std::string& file, std::string_view kind, const std::string& problem) {
    auto& files = *platform().files;
    const std::string directory = files.documentsDirectory();
    const std::string stem = "BVGOutbox." + std::string(kind) + "-" + utcStamp(platform().clock->now());
    std::string target = appendPathComponent(directory, stem + ".sqlite");
    for (int n = 1; files.fileExists(target) && n < 1000; ++n)
        target = appendPathComponent(directory, stem + "-" + std::to_string(n) + ".sqlite");
    auto result = files.moveItem(file, target);
    for (const char* suffix : {"-wal", "-shm"})
        if (files.fileExists(file + suffix)) files.moveItem(file + suffix, target + suffix);
    std::string line = "Outbox " + file + " is unreadable (" + problem + "): ";
    line += result.ok ? "moved to " + target + ", starting a new one" : "could not move it: " + result.error;
    platform().console->print(line);
    Logger::log(line, LogCategory::REQUESTS, "Outbox", 200);
    if (!result.ok) files.removeItem(file);
}

void Outbox::applyBounds() {
    const auto options = TrackerSettings::sharedInstance().extendedOptions();
    auto drop = [&](const char* where, std::int64_t bound, const std::string& why) {
        Statement select(db_, (std::string(kSelectColumns) + where).c_str());
        if (!select || sqlite3_bind_int64(select.get(), 1, bound) != SQLITE_OK) return;
        for (const auto& [id, report] : readReports(select.get())) {
            Statement erase(db_, "DELETE FROM reports WHERE id = ?1");
            if (!erase || sqlite3_bind_int64(erase.get(), 1, id) != SQLITE_OK ||
                sqlite3_step(erase.get()) != SQLITE_DONE)
                continue;
            logDropped(report, why);
        }
    };
    if (options.outboxMaxAgeSeconds > 0)
        drop("WHERE created_at < ?1 ORDER BY id", platform().clock->now() - options.outboxMaxAgeSeconds,
             "older than " + std::to_string(options.outboxMaxAgeSeconds) + " seconds");
    if (options.outboxMaxReports > 0) {
        Statement counted(db_, "SELECT count(*) FROM reports");
        if (!counted || sqlite3_step(counted.get()) != SQLITE_ROW ||
            static_cast<std::size_t>(sqlite3_column_int64(counted.get(), 0)) <= options.outboxMaxReports)
            return;
        // Everything but the newest outboxMaxReports rows.
        drop("WHERE id NOT IN (SELECT id FROM reports ORDER BY id DESC LIMIT ?1) ORDER BY id",
             static_cast<std::int64_t>(options.outboxMaxReports),
             "more than " + std::to_string(options.outboxMaxReports) + " reports");
    }
}

} // namespace bvgeo
