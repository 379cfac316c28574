// RecordingConsole: keeps every console line so tests can read what was written.
#pragma once

#include <bvgeo/platform/Console.hpp>
#include <bvgeo/Export.hpp>

#include <mutex>
#include <string>
#include <vector>

namespace bvgeo::testing {

class BVGEO_API RecordingConsole final : public Console {
public:
    void log(std::string_view line) override;
    void print(std::string_view line) override;

    std::vector<std::string> logLines() const;
    std::vector<std::string> printedLines() const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> logs_;
    std::vector<std::string> prints_;
};

} // namespace bvgeo::testing
