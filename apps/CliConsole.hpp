// CliConsole: where the library's console lines go in the command line. Standard
// output belongs to the program's own results (triggers, summaries, records), so
// the library's plain prints go to standard error, and its debug echo of every log
// line only when the user asked for it (every line is in the database anyway).
// Thread-safe: whole lines, one at a time.
#pragma once

#include <bvgeo/platform/Console.hpp>

#include <mutex>

namespace bvgeo::cli {

class CliConsole final : public Console {
public:
    explicit CliConsole(bool echoLog) : echoLog_(echoLog) {}
    void log(std::string_view line) override;
    void print(std::string_view line) override;
    // Writes a program line to standard error between the library's lines.
    void note(std::string_view line);

private:
    void write(std::string_view line);
    const bool echoLog_;
    std::mutex mutex_;
};

} // namespace bvgeo::cli
