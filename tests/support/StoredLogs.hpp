// Reading back what the library logged, for assertions on exact lines.
#pragma once

#include "logger/LogCategory.hpp"
#include "models/Log.hpp"

#include <algorithm>
#include <string>
#include <vector>

namespace bvgeo::testing {

// Stored messages of one category (every row for NONE), oldest first.
inline std::vector<std::string> storedMessages(LogCategory category = LogCategory::NONE) {
    std::vector<std::string> out;
    for (const auto& row : Log::getLogsFromDatabase(category)) out.push_back(row->message);
    return out;
}

// The same with the "[date] - " prefix cut off: "function [Line n]: text".
inline std::vector<std::string> storedLines(LogCategory category = LogCategory::NONE) {
    std::vector<std::string> out;
    for (auto& message : storedMessages(category)) {
        auto cut = message.find("] - ");
        out.push_back(cut == std::string::npos ? message : message.substr(cut + 4));
    }
    return out;
}

inline bool hasLine(const std::vector<std::string>& lines, const std::string& text) {
    return std::find(lines.begin(), lines.end(), text) != lines.end();
}

} // namespace bvgeo::testing
