#include "debug/LogViewerViewController.hpp"

#include "datastore/BV1Database.hpp"
#include "datastore/DatabaseSnapshot.hpp"
#include "models/Log.hpp"
#include "settings/TrackerSettings.hpp"

#include <bvgeo/BVGeoTracker.hpp>
#include <bvgeo/platform/Platform.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>

namespace bvgeo {

using nlohmann::json;

std::optional<LogCategory> LogViewerViewController::categoryForFilter(std::string_view filter) {
    if (filter == "NONE") return LogCategory::NONE;
    // Every other row is a category's own text; "" would read as NONE, so refuse it.
    if (filter.empty()) return std::nullopt;
    return logCategoryFromRaw(filter);
}

void LogViewerViewController::addLogMessage(std::string& logContent, const std::string& message) {
    logContent += message;
    logContent += " \n";
}

json LogViewerViewController::logPage(LogCategory category, std::optional<std::int64_t> beforeId, std::size_t limit) {
    const auto page = Log::getLogsPage(category, beforeId, std::clamp<std::size_t>(limit, 1, kMaxPageSize));
    json rows = json::array();
    for (const auto& log : page.rows) rows.push_back({{"id", std::stoll(log->id)}, {"message", log->message}});
    return {{"filter", category == LogCategory::NONE ? std::string("NONE") : std::string(rawValue(category))},
            {"rows", std::move(rows)},
            {"more", page.more}};
}

std::string LogViewerViewController::defaultArchiveName() {
    return platform().dateFormatter->format(platform().clock->currentTime(), "MM-dd-yyyy HH:mm");
}

std::string LogViewerViewController::restartErrorMessage(int code) {
    switch (code) {
    case BVErrorCodes::kErrorResetDatabaseNameMandatory:
        return "Name cannot be empty";
    case BVErrorCodes::kErrorResetDatabaseAlreadyExists:
        return "Name already exists";
    case BVErrorCodes::kErrorResetDatabaseNameInvalid:
        return "Name cannot contain '/' or be '.' or '..'";
    default:
        return "Unknown error happened";
    }
}

LogViewerViewController::RestartOutcome LogViewerViewController::resetAlertViewDoneHandler(const std::string& name) {
    RestartOutcome outcome;
    outcome.code = -1; // stays when neither closure runs
    auto& tracker = BVGeoTracker::sharedInstance();
    tracker.reset(
        name,
        [&] {
            tracker.start();
            outcome = {true, 0, ""};
        },
        [&](const BVError& error) { outcome = {false, error.code, restartErrorMessage(error.code)}; });
    if (!outcome.ok && outcome.code == -1) outcome.message = restartErrorMessage(-1);
    return outcome;
}

DeviceReportFields LogViewerViewController::reportFields() {
    DeviceReportFields fields;
    fields.deviceId = TrackerSettings::sharedInstance().deviceId();
    fields.deviceName = platform().device->name();
    fields.model = platform().device->model();
    fields.systemVersion = platform().device->systemVersion();
    // A host that declares no version still gets a readable report.
    fields.appVersion = platform().application->shortVersion();
    if (fields.appVersion.empty()) fields.appVersion = "unknown";
    return fields;
}

MailReport LogViewerViewController::emailReport(const DeviceReportFields& fields) {
    // The live file alone may lack what its WAL holds, and a checkpoint cannot run
    // while a write group is open: the database goes as a backup-API snapshot under
    // its own name, holding every committed row.
    const BV1Database database;
    const auto snapshot = snapshotDatabase(database.path());
    MailReport report = makeMailReport(fields, platform().files->documentsDirectory());
    if (snapshot)
        for (auto& attachment : report.attachments)
            if (attachment.fileName == database.fileName()) attachment.data = *snapshot;
    return report;
}

} // namespace bvgeo
