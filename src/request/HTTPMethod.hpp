// HTTPMethod: the four verbs the library sends. A plain value; the raw text is what
// goes on the request line.
#pragma once

#include <optional>
#include <string_view>

namespace bvgeo {

enum class HTTPMethod : int { GET = 0, POST, PUT, DELETE };

std::string_view rawValue(HTTPMethod method);
// Exact, case-sensitive match: "get" is not a method.
std::optional<HTTPMethod> httpMethodFromRaw(std::string_view text);

} // namespace bvgeo
