// bvgeo: the command line around the library.
#include "Cli.hpp"

int main(int argc, char** argv) { return bvgeo::cli::run(argc, argv); }
