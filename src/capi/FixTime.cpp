#include "capi/FixTime.hpp"

#include <cmath>
#include <cstdio>

namespace bvgeo::capi {

namespace {
std::string shown(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}
} // namespace

std::optional<std::string> timeProblem(const std::string& what, double time) {
    if (!std::isfinite(time) || time < 0)
        return what + " " + shown(time) + " is not a time (seconds since 1970, or 0 for now)";
    if (time >= kMillisecondsFrom)
        return what + " " + shown(time) + " looks like milliseconds since 1970; give seconds";
    return std::nullopt;
}

std::optional<std::string> virtualFixProblem(double time, double now, bool started) {
    if (!started || time == 0 || time >= now) return std::nullopt;
    return "time " + shown(time) + " is before the virtual clock (" + shown(now) +
           "): fixes must come in time order, and the clock never moves back";
}

} // namespace bvgeo::capi
