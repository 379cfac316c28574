#include "capi/CallbackConsole.hpp"

#include <cstdio>
#include <string>

namespace bvgeo::capi {

void CallbackConsole::write(std::string_view line) {
    // The view need not end in NUL; the callback gets a C string.
    const std::string text(line);
    std::lock_guard lock(mutex_);
    if (callback_)
        callback_(text.c_str(), userData_);
    else
        std::fprintf(stderr, "%s\n", text.c_str());
}

void CallbackConsole::disarm() {
    std::lock_guard lock(mutex_);
    callback_ = nullptr;
    userData_ = nullptr;
}

} // namespace bvgeo::capi
