// Log: one row of the log table, with its insert and its read-back by category.
#pragma once

#include "logger/LogCategory.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bvgeo {

class Log {
public:
    std::string id;      // decimal text of the row key when read back
    std::string message;
    LogCategory category = LogCategory::NONE;
    std::int64_t timestamp = 0;

    // Adds a row. True when the insert ran.
    static bool save(const Log& record);
    // Every row for NONE, else the rows of that category; oldest first. A category
    // text that is not one of ours reads back as NONE; NULL texts as empty text.
    static std::vector<std::shared_ptr<Log>> getLogsFromDatabase(LogCategory category = LogCategory::NONE);
};

} // namespace bvgeo
