#include "capi/CallbackConsole.hpp"

#include <string>

namespace bvgeo::capi {

void CallbackConsole::write(std::string_view line) {
    // The view need not end in NUL; the callback gets a C string.
    const std::string text(line);
    std::lock_guard lock(mutex_);
    callback_(text.c_str(), userData_);
}

} // namespace bvgeo::capi
