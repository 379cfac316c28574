// Whether text handed to the C API is well-formed UTF-8 (RFC 3629): no overlong
// forms, no surrogates, nothing above U+10FFFF. A pure function; any thread.
#pragma once

#include <string_view>

namespace bvgeo::capi {

bool isValidUtf8(std::string_view text);

} // namespace bvgeo::capi
