#include <bvgeo/testing/RecordingConsole.hpp>

namespace bvgeo::testing {

void RecordingConsole::log(std::string_view line) {
    std::lock_guard lock(mutex_);
    logs_.emplace_back(line);
}

void RecordingConsole::print(std::string_view line) {
    std::lock_guard lock(mutex_);
    prints_.emplace_back(line);
}

std::vector<std::string> RecordingConsole::logLines() const {
    std::lock_guard lock(mutex_);
    return logs_;
}

std::vector<std::string> RecordingConsole::printedLines() const {
    std::lock_guard lock(mutex_);
    return prints_;
}

void RecordingConsole::clear() {
    std::lock_guard lock(mutex_);
    logs_.clear();
    prints_.clear();
}

} // namespace bvgeo::testing
