// FixTime: the rules for a time a C host hands over (a fix's time, virtual time's
// start). Seconds since 1970, or 0 for "now"; a value only milliseconds can be is
// refused rather than moving the clock tens of thousands of years ahead, and in
// virtual time a fix may not be older than the clock, which never moves back. Pure
// functions, any thread.
#pragma once

#include <optional>
#include <string>

namespace bvgeo::capi {

// 1e11 seconds is the year 5138; as milliseconds it is 1973. Anything from here
// on can only be milliseconds.
inline constexpr double kMillisecondsFrom = 1e11;

// Why `time` (named `what` in the text) is not seconds since 1970 or 0, or empty.
std::optional<std::string> timeProblem(const std::string& what, double time);

// Why a fix at `time` cannot be taken by a virtual clock at `now`, or empty. Before
// virtual time started (`started` false) every time is taken: the first fix sets
// the clock. `time` 0 means the clock's now.
std::optional<std::string> virtualFixProblem(double time, double now, bool started);

} // namespace bvgeo::capi
