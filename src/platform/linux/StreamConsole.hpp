// StreamConsole: log lines to one stream, printed lines to another; by default both
// go to standard error, so nothing of the library's reaches the host's standard
// output. One mutex orders all lines, so lines from different threads never
// interleave. The streams must outlive the console.
#pragma once

#include <bvgeo/platform/Console.hpp>

#include <iosfwd>
#include <mutex>

namespace bvgeo {

class StreamConsole final : public Console {
public:
    StreamConsole();
    StreamConsole(std::ostream& logStream, std::ostream& printStream);

    void log(std::string_view line) override;
    void print(std::string_view line) override;

private:
    void write(std::ostream& stream, std::string_view line);

    std::mutex mutex_;
    std::ostream& log_;
    std::ostream& print_;
};

} // namespace bvgeo
