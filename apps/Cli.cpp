#include "Cli.hpp"

#include <cstdio>
#include <string>

namespace bvgeo::cli {

int run(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--version") {
        std::puts("1.3.0");
        return 0;
    }
    std::fputs("usage: bvgeo <command> [options]\n", stderr);
    return 2;
}

} // namespace bvgeo::cli
