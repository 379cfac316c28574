// UrlText: what the facade does to text it puts into a URL, and what it accepts as
// a base URL. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bvgeo {

// `text` as one path segment: every byte but the unreserved characters
// (A-Z a-z 0-9 - . _ ~) as %XX, and a segment of dots only ("." or "..") with its
// dots encoded too, so no id can step out of the path it is put in.
std::string percentEncodePathSegment(std::string_view text);

// Why `url` cannot be a base URL that an app id and a path are appended to
// (http or https, a host, ending in "/"), or empty.
std::optional<std::string> baseUrlProblem(std::string_view url);

} // namespace bvgeo
