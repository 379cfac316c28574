#include "platform/linux/StreamConsole.hpp"

#include <iostream>

namespace bvgeo {

// Standard output belongs to the host (its JSON, its CSV): the library's prints go
// to standard error with its log lines.
StreamConsole::StreamConsole() : StreamConsole(std::cerr, std::cerr) {}

StreamConsole::StreamConsole(std::ostream& logStream, std::ostream& printStream)
    : log_(logStream), print_(printStream) {}

void StreamConsole::log(std::string_view line) { write(log_, line); }

void StreamConsole::print(std::string_view line) { write(print_, line); }

void StreamConsole::write(std::ostream& stream, std::string_view line) {
    std::lock_guard lock(mutex_);
    // Flushed per line: these are diagnostics, wanted even if the process dies next.
    stream << line << '\n' << std::flush;
}

} // namespace bvgeo
