#!/usr/bin/env bash
# Installs what is missing, builds the bvgeo command line and runs its demo: zone
# files from the example places, the reference server on loopback, and the example
# track replayed through the library in virtual time. Extra arguments go to the demo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target bvgeo_cli
exec build/default/apps/bvgeo demo "$@"
