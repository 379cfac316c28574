// Log: one row of the log table, with its insert and its read-back by category.
#pragma once

#include "logger/LogCategory.hpp"

#include <cstdint>
#include <cstddef>
#include <memory>
#include <optional>
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
    static bool save(Log record);
    // Every row for NONE, else the rows of that category; oldest first. A category
    // text that is not one of ours reads back as NONE; NULL texts as empty text.
    static std::vector<std::shared_ptr<Log>> getLogsFromDatabase(LogCategory category = LogCategory::NONE);

    struct Page {
        std::vector<std::shared_ptr<Log>> rows; // newest first
        bool more = false;                      // older rows remain
    };
    // One page of the same rows, newest first: at most `limit` of them, only those
    // with a row key below `beforeId` when it is given. Reads only what it returns,
    // so the first page of a million-row table costs what the page costs.
    static Page getLogsPage(LogCategory category, std::optional<std::int64_t> beforeId, std::size_t limit);
};

} // namespace bvgeo
