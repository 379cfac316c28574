// Logger: every diagnostic line of the library goes through Logger::log. Each call
// stores one row in the log table, synchronously on the caller's thread, and in
// debug mode echoes the line to the console. Safe from any thread; never fails
// loudly (a failed write is dropped, the echo still happens).
#pragma once

#include "logger/LogCategory.hpp"
#include <cstdint>
#include <string>
#include <string_view>

namespace bvgeo {

class Logger {
public:
    static void log(std::string_view message, LogCategory category = LogCategory::NONE,
                    std::string_view function = "", int line = 0);
    // Adds one row to the log table; true when the insert ran. A failed write is
    // reported by the connection, not here.
    static bool saveLogToDatabase(std::string message, LogCategory category, std::int64_t timestamp);

    // Debug mode as the facade sets it (initially on): it decides the console echo.
    static bool debugMode();
    static void setDebugMode(bool enabled);

    // The stored message: "[" + localTime + "] - " + function + " [Line " + line + "]: " + text.
    static std::string formatMessage(std::string_view localTime, std::string_view function, int line,
                                     std::string_view text);
};

} // namespace bvgeo
