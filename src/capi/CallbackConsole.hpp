// CallbackConsole: the platform console of a C host that asked for the library's
// console lines through a function pointer. Log and print lines alike go to it, one
// whole NUL-terminated line per call, on whichever thread wrote the line, with no
// lock of the library held: calls on different threads may overlap, and the
// callback may call back into the library (bvgeo.h says which calls). A line the
// library writes while the callback runs on the same thread (the echo of a
// bvgeo_log made from it) is not handed to it again: log and print lines are
// dropped there, warnings go to standard error.
//
// Once the host's tracker is closing, disarm() sends later lines to standard error
// and waits for calls under way on other threads: after it returns the host's
// function is never called again. It must not be called from inside the callback.
#pragma once

#include <bvgeo/bvgeo.h>
#include <bvgeo/platform/Console.hpp>

#include <condition_variable>
#include <mutex>

namespace bvgeo::capi {

class CallbackConsole final : public Console {
public:
    CallbackConsole(bvgeo_console_callback callback, void* userData) : callback_(callback), userData_(userData) {}

    void log(std::string_view line) override { write(line, false); }
    void print(std::string_view line) override { write(line, false); }
    void warn(std::string_view line) override { write(line, true); }
    void disarm();

    // True while the calling thread is inside the host's console callback.
    static bool runningOnThisThread();

private:
    void write(std::string_view line, bool warning);

    std::mutex mutex_; // guards the pair and the count; never held across a call
    std::condition_variable idle_;
    bvgeo_console_callback callback_;
    void* userData_;
    int running_ = 0; // calls under way
};

} // namespace bvgeo::capi
