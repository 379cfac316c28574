#include "capi/CallbackConsole.hpp"

#include <cstdio>
#include <string>

namespace bvgeo::capi {

namespace {
thread_local int callbackDepth = 0;

void toStandardError(const std::string& text) { std::fprintf(stderr, "%s\n", text.c_str()); }
} // namespace

bool CallbackConsole::runningOnThisThread() { return callbackDepth > 0; }

void CallbackConsole::write(std::string_view line, bool warning) {
    // The view need not end in NUL; the callback gets a C string.
    const std::string text(line);
    if (callbackDepth > 0) {
        if (warning) toStandardError(text);
        return;
    }
    bvgeo_console_callback callback;
    void* userData;
    {
        std::lock_guard lock(mutex_);
        callback = callback_;
        userData = userData_;
        if (callback) ++running_;
    }
    if (!callback) {
        toStandardError(text);
        return;
    }
    ++callbackDepth;
    try {
        callback(text.c_str(), userData);
    } catch (...) {
        // A C++ host's function may throw through the C boundary; the line is lost, not the caller.
    }
    --callbackDepth;
    std::lock_guard lock(mutex_);
    if (--running_ == 0) idle_.notify_all();
}

void CallbackConsole::disarm() {
    std::unique_lock lock(mutex_);
    callback_ = nullptr;
    userData_ = nullptr;
    idle_.wait(lock, [&] { return running_ == 0; });
}

} // namespace bvgeo::capi
