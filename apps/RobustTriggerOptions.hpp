// The command line's robust-trigger options, shared by replay and live tracking:
// --robust-triggers turns the rules on with their defaults, and one option per
// tunable sets it (and turns the rules on too). Parsers throw UsageError.
#pragma once

#include "Args.hpp"

#include <bvgeo/TriggerFilterOptions.hpp>

#include <vector>

namespace bvgeo::cli {

std::vector<OptionDecl> robustTriggerOptionDecls();
void applyRobustTriggerOptions(const Args& args, TriggerFilterOptions& options);

} // namespace bvgeo::cli
