// The bvgeo command line: parses the subcommand and hands over to it. Returns the
// process exit status (0 done, 1 failed while running, 2 bad usage or input).
#pragma once

namespace bvgeo::cli {

int run(int argc, char** argv);

} // namespace bvgeo::cli
