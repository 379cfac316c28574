#include "logger/Logger.hpp"

#include "datastore/BV1Database.hpp"
#include "platform/SharedInstance.hpp"

#include <bvgeo/platform/Platform.hpp>

#include <atomic>
#include <string>
#include <utility>

namespace bvgeo {

namespace {
// A shared instance, so that resetting the library's shared state brings debug
// mode back on with everything else.
struct DebugMode {
    std::atomic<bool> enabled{true};
};

std::atomic<bool>& debugFlag() {
    static SharedInstance<DebugMode> slot;
    return slot.get([] { return std::make_unique<DebugMode>(); }).enabled;
}
} // namespace

void Logger::log(std::string_view message, LogCategory category, std::string_view function, int line) {
    const auto& environment = platform();
    // One reading serves both the text and the column, so they never disagree.
    const std::int64_t now = environment.clock->now();
    // A failed write is dropped; the connection reports the failure.
    (void)saveLogToDatabase(
        formatMessage(environment.dateFormatter->format(static_cast<double>(now), "yyyy-MM-dd HH:mm:ss"), function,
                      line, message),
        category, now);

    if (debugMode()) {
        std::string echo;
        echo.reserve(function.size() + message.size() + 20);
        echo.append(function).append(" [Line ").append(std::to_string(line)).append("]: ").append(message);
        environment.console->log(echo);
    }
}

bool Logger::saveLogToDatabase(std::string message, LogCategory category, std::int64_t timestamp) {
    // Built once: every log line of the library comes through here.
    static const std::string kInsert = "INSERT INTO log (message, category, timestamp) VALUES (?, ?, ?)";
    // Moved, not copied: a "Fences from" line of a large zone runs to megabytes.
    return BV1Database::executeUpdate(kInsert,
                                      {std::move(message), std::string(rawValue(category)), timestamp});
}

bool Logger::debugMode() { return debugFlag().load(std::memory_order_relaxed); }

void Logger::setDebugMode(bool enabled) { debugFlag().store(enabled, std::memory_order_relaxed); }

std::string Logger::formatMessage(std::string_view localTime, std::string_view function, int line,
                                  std::string_view text) {
    const auto lineText = std::to_string(line);
    std::string out;
    out.reserve(localTime.size() + function.size() + lineText.size() + text.size() + 16);
    out.append("[").append(localTime).append("] - ").append(function);
    out.append(" [Line ").append(lineText).append("]: ").append(text);
    return out;
}

} // namespace bvgeo
