#include "request/Outbox.hpp"

#include "datastore/DatabaseConnection.hpp"
#include "logger/Logger.hpp"
#include "platform/SharedInstance.hpp"
#include "settings/TrackerSettings.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>

namespace bvgeo {

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

constexpr const char* kSelectColumns =
    "SELECT id, idempotency_key, url, method, headers, body, fence_id, event, created_at FROM reports ";

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

OutboxReport reportFrom(const DatabaseRow& row) {
    OutboxReport report;
    report.key = row.stringForColumn("idempotency_key");
    report.request.url = row.stringForColumn("url");
    report.request.method = httpMethodFromRaw(row.stringForColumn("method")).value_or(HTTPMethod::POST);
    report.request.headers = headersFromText(row.stringForColumn("headers"));
    if (!row.columnIsNull("body")) report.request.body = row.stringForColumn("body");
    report.fenceId = row.stringForColumn("fence_id");
    report.event = row.stringForColumn("event");
    report.createdAt = row.int64ForColumn("created_at");
    return report;
}

std::shared_ptr<DatabaseConnection> connection() {
    return DatabaseConnection::forPath(Outbox::path(), Outbox::outboxFile());
}

} // namespace

Outbox& Outbox::sharedInstance() {
    static SharedInstance<Outbox> slot;
    return slot.get([] { return std::unique_ptr<Outbox>(new Outbox()); });
}

// The registry of connections closes the file when the library's state goes.
Outbox::~Outbox() = default;

std::string Outbox::path() {
    return appendPathComponent(platform().files->documentsDirectory(), std::string(kFileName));
}

const DatabaseFile& Outbox::outboxFile() {
    static const DatabaseFile file = [] {
        DatabaseFile f;
        f.schema = kSchema;
        f.version = kSchemaVersion;
        // Every report is synced at its commit: a report is written so that it survives.
        f.syncEachCommit = true;
        f.setAsideNewer = true;
        f.label = "Outbox";
        f.onSetAside = [](const SetAside& aside) {
            std::string line = "Outbox " + aside.path + " is unreadable (" + aside.problem + "): ";
            line += aside.movedTo ? "moved to " + *aside.movedTo + ", starting a new one"
                                  : "could not move it: " + aside.error;
            platform().console->print(line);
            Logger::log(line, LogCategory::REQUESTS, "Outbox", 200);
        };
        return f;
    }();
    return file;
}

bool Outbox::add(const OutboxReport& report) {
    const auto& request = report.request;
    SqlValue body = nullptr;
    if (request.body) body = *request.body;
    const bool stored = connection()->executeUpdate(
        "INSERT OR REPLACE INTO reports (idempotency_key, url, method, headers, body, fence_id, event, created_at) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
        {report.key, request.url, std::string(rawValue(request.method)), headersText(request.headers), body,
         report.fenceId, report.event, report.createdAt});
    if (!stored) {
        platform().console->print("Outbox: cannot store a report: " + DatabaseConnection::lastError());
        return false;
    }
    applyBounds();
    return true;
}

void Outbox::remove(const std::string& key) {
    connection()->executeUpdate("DELETE FROM reports WHERE idempotency_key = ?", {key});
}

std::vector<OutboxReport> Outbox::pending() {
    applyBounds();
    std::vector<OutboxReport> reports;
    connection()->executeQuery(std::string(kSelectColumns) + "ORDER BY id", {},
                               [&](const DatabaseRow& row) { reports.push_back(reportFrom(row)); });
    return reports;
}

std::size_t Outbox::count() {
    std::size_t count = 0;
    connection()->executeQuery("SELECT count(*) FROM reports", {}, [&](const DatabaseRow& row) {
        count = static_cast<std::size_t>(row.int64ForColumnIndex(0));
    });
    return count;
}

void Outbox::close() { connection()->close(); }

void Outbox::applyBounds() {
    const auto options = TrackerSettings::sharedInstance().extendedOptions();
    // Each bound is one statement that deletes and tells what it deleted, so two
    // threads applying it at once log each dropped report once.
    auto drop = [](const std::string& where, std::int64_t bound, const std::string& why) {
        std::vector<std::pair<std::int64_t, OutboxReport>> dropped;
        connection()->executeQuery("DELETE FROM reports " + where + " RETURNING id, fence_id, event", {bound},
                                   [&](const DatabaseRow& row) {
                                       OutboxReport report;
                                       report.fenceId = row.stringForColumn("fence_id");
                                       report.event = row.stringForColumn("event");
                                       dropped.emplace_back(row.int64ForColumn("id"), std::move(report));
                                   });
        std::sort(dropped.begin(), dropped.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& [id, report] : dropped)
            Logger::log("Report dropped from outbox (" + why + "): " + report.event + " fenceId: " + report.fenceId,
                        LogCategory::REQUESTS, "Outbox", 90);
    };
    if (options.outboxMaxAgeSeconds > 0)
        drop("WHERE created_at < ?", platform().clock->now() - options.outboxMaxAgeSeconds,
             "older than " + std::to_string(options.outboxMaxAgeSeconds) + " seconds");
    if (options.outboxMaxReports > 0)
        // Everything but the newest outboxMaxReports rows.
        drop("WHERE id NOT IN (SELECT id FROM reports ORDER BY id DESC LIMIT ?)",
             static_cast<std::int64_t>(std::min<std::size_t>(options.outboxMaxReports, std::numeric_limits<std::int64_t>::max())),
             "more than " + std::to_string(options.outboxMaxReports) + " reports");
}

} // namespace bvgeo
