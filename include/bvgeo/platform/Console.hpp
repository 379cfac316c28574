// Console: the process's diagnostic output. `log` is the system log line (the
// logger's debug echo, start-up notes); `print` is the plain output that the
// database's file operations and the HTTP client write (decoded answers); `warn` is a line the
// user must see whatever the echo settings (a storage fault, a damaged file moved
// aside), by default written like `log`. Thread-safe; each call writes one whole line.
#pragma once

#include <bvgeo/Export.hpp>

#include <string_view>

namespace bvgeo {

class BVGEO_API Console {
public:
    virtual ~Console() = default;
    virtual void log(std::string_view line) = 0;
    virtual void print(std::string_view line) = 0;
    // False when print() drops every line: the library then does not build print
    // lines nobody reads (a decoded zone file can run to megabytes).
    virtual bool wantsPrints() const { return true; }
    virtual void warn(std::string_view line) { log(line); }
};

} // namespace bvgeo
