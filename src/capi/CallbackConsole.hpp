// CallbackConsole: the platform console of a C host that asked for the library's
// console lines through a function pointer. Log and print lines alike go to it, one
// whole NUL-terminated line per call, one call at a time (a mutex orders them), on
// whichever thread wrote the line. The callback must not call back into the library.
// Once the host's tracker is closed, disarm() sends later lines to standard error:
// the platform outlives the session, the host's function need not.
#pragma once

#include <bvgeo/bvgeo.h>
#include <bvgeo/platform/Console.hpp>

#include <mutex>

namespace bvgeo::capi {

class CallbackConsole final : public Console {
public:
    CallbackConsole(bvgeo_console_callback callback, void* userData) : callback_(callback), userData_(userData) {}

    void log(std::string_view line) override { write(line); }
    void print(std::string_view line) override { write(line); }
    void disarm();

private:
    void write(std::string_view line);

    std::mutex mutex_;
    bvgeo_console_callback callback_;
    void* userData_;
};

} // namespace bvgeo::capi
