// CliConsole: where the library's console lines go in the command line. Standard
// output belongs to the program's own results (triggers, summaries, records), so
// the library's plain prints (decoded HTTP answers, database notes) go to standard
// error when `showPrints` is set, and its debug echo of every log line when
// `echoLog` is (every line is in the database anyway). A program whose results
// are the library's prints (the debug console's report lines) sends them to
// standard output instead with `printsToStandardOutput`. Warnings (storage faults,
// damaged files moved aside) always reach standard error.
// Thread-safe: whole lines, one at a time.
#pragma once

#include <bvgeo/platform/Console.hpp>

#include <cstdio>
#include <mutex>

namespace bvgeo::cli {

class CliConsole final : public Console {
public:
    CliConsole(bool echoLog, bool showPrints, bool printsToStandardOutput = false)
        : echoLog_(echoLog), showPrints_(showPrints), printsToStandardOutput_(printsToStandardOutput) {}
    void log(std::string_view line) override;
    void print(std::string_view line) override;
    bool wantsPrints() const override { return printsToStandardOutput_ || showPrints_; }
    void warn(std::string_view line) override { write(line); }
    // Writes a program line to standard error between the library's lines.
    void note(std::string_view line);

private:
    void write(std::string_view line, std::FILE* stream = stderr);
    const bool echoLog_;
    const bool showPrints_;
    const bool printsToStandardOutput_;
    std::mutex mutex_;
};

} // namespace bvgeo::cli
