#include "CliConsole.hpp"

#include <cstdio>

namespace bvgeo::cli {

void CliConsole::log(std::string_view line) {
    if (echoLog_) write(line);
}

void CliConsole::print(std::string_view line) {
    if (printsToStandardOutput_)
        write(line, stdout);
    else if (showPrints_)
        write(line);
}

void CliConsole::note(std::string_view line) { write(line); }

void CliConsole::write(std::string_view line, std::FILE* stream) {
    std::lock_guard lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fputc('\n', stream);
    std::fflush(stream);
}

} // namespace bvgeo::cli
