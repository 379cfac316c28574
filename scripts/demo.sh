#!/usr/bin/env bash
# Builds the library and runs the example host program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target host_example
exec build/default/examples/host_example "$@"
