// Making sure a directory exists and takes files, before the library puts its
// database there: for the C API's documents directory and the command line's data
// directory. Runs on the caller's thread; throws only what std::filesystem does
// when it cannot even tell whether the path is a directory (and bad_alloc).
#pragma once

#include <optional>
#include <string>

namespace bvgeo::capi {

// Creates `directory` when missing and writes a probe file into it. Why it cannot
// be used, naming it as "the <role> <directory>", or nothing when it can.
std::optional<std::string> prepareWritableDirectory(const std::string& directory, const std::string& role);

} // namespace bvgeo::capi
