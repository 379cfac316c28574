// LogViewerViewController: the log page's server side. It reads the stored log a
// page at a time, newest first and filtered by category; archives the database and
// starts tracking again ("Restart"); and puts together the device report that
// "Send to Email" mails or offers as a file. Reads run on the console's HTTP
// workers; restart() and reportFields() drive the tracker and must run on the main
// queue, where the console posts them.
#pragma once

#include "debug/MailReport.hpp"
#include "logger/LogCategory.hpp"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

class LogViewerViewController {
public:
    // The picker's rows, in order.
    static constexpr std::array<std::string_view, 8> filters = {"NONE",     "FENCE",    "ZONE",    "GENERAL",
                                                                "LOCATION", "REQUESTS", "TRIGGER", "CLIENT"};
    static constexpr std::size_t kDefaultPageSize = 500;
    static constexpr std::size_t kMaxPageSize = 5000;

    // The category a picker row stands for; nothing for text that is not a row.
    static std::optional<LogCategory> categoryForFilter(std::string_view filter);

    // One row's line in the log area: its message, a blank, a line feed.
    static void addLogMessage(std::string& logContent, const std::string& message);

    // {"filter", "rows": [{"id", "message"}] newest first, "more"}: the rows of
    // `category` below `beforeId` (all when absent), at most `limit`.
    static nlohmann::json logPage(LogCategory category, std::optional<std::int64_t> beforeId, std::size_t limit);

    // The restart dialog's default archive name: the current local minute,
    // "MM-dd-yyyy HH:mm".
    static std::string defaultArchiveName();

    struct RestartOutcome {
        bool ok = false;
        int code = 0;
        std::string message; // what the "Error" dialog says
    };
    // Archives the database as `name` and starts tracking on a fresh one. Main queue.
    static RestartOutcome resetAlertViewDoneHandler(const std::string& name);
    // The "Error" dialog's text for a failed restart's code.
    static std::string restartErrorMessage(int code);

    // What the report says about the device and the host application. Main queue.
    static DeviceReportFields reportFields();
    // The report mail: subject, body, and every "*sqlite" file under the documents
    // directory. Flushes the library's database into its file first.
    static MailReport emailReport(const DeviceReportFields& fields);
};

} // namespace bvgeo
