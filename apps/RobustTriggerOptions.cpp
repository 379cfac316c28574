#include "RobustTriggerOptions.hpp"

#include <cmath>
#include <limits>
#include <string>

namespace bvgeo::cli {

std::vector<OptionDecl> robustTriggerOptionDecls() {
    return {{"robust-triggers", false}, {"exit-buffer"},       {"accuracy-cap"},      {"max-accuracy"},
            {"assumed-accuracy"},       {"hdop-metres"},       {"max-speed"},         {"confirm-fixes"},
            {"confirm-seconds"},        {"minimum-dwell"},     {"use-2d-fixes", false}};
}

void applyRobustTriggerOptions(const Args& args, TriggerFilterOptions& o) {
    bool any = args.has("robust-triggers");
    const auto metres = [&](const char* name, double& into, bool zeroAllowed) {
        const auto value = args.number(name);
        if (!value) return;
        if (!std::isfinite(*value) || *value < 0.0 || (!zeroAllowed && *value == 0.0))
            throw UsageError(std::string("--") + name + " must be " + (zeroAllowed ? "0 or more" : "greater than 0"));
        into = *value;
        any = true;
    };
    const auto seconds = [&](const char* name, std::int64_t& into, std::int64_t least, std::int64_t most) {
        const auto value = args.integer(name);
        if (!value) return;
        if (*value < least || *value > most)
            throw UsageError(std::string("--") + name + " must be from " + std::to_string(least) + " to " +
                             std::to_string(most));
        into = *value;
        any = true;
    };
    metres("exit-buffer", o.exitBufferMetres, true);
    metres("accuracy-cap", o.accuracyCapMetres, true);
    metres("max-accuracy", o.maxAccuracyMetres, false);
    metres("assumed-accuracy", o.assumedAccuracyMetres, true);
    metres("hdop-metres", o.hdopMetres, false);
    metres("max-speed", o.maxSpeed, false);
    std::int64_t fixes = o.confirmFixes;
    seconds("confirm-fixes", fixes, 1, 1000);
    o.confirmFixes = static_cast<int>(fixes);
    constexpr std::int64_t kDay = 86400;
    seconds("confirm-seconds", o.confirmSeconds, 0, kDay);
    seconds("minimum-dwell", o.minimumDwellSeconds, 0, kDay);
    if (args.has("use-2d-fixes")) {
        o.useTwoDimensionalFixes = true;
        any = true;
    }
    o.robustTriggers = any;
}

} // namespace bvgeo::cli
