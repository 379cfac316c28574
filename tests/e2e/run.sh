#!/usr/bin/env bash
# Browser tests of the debug console against a built bvgeo program.
#   tests/e2e/run.sh BVGEO_BINARY OUTPUT_DIR
# OUTPUT_DIR receives map-page.png, log-page.png and the downloaded report.
# Dependencies are installed beforehand with
#   npm ci --prefix tests/e2e && npm ci --prefix src/debug/web
set -euo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 BVGEO_BINARY OUTPUT_DIR" >&2
  exit 2
fi
here="$(cd "$(dirname "$0")" && pwd)"
web="$here/../../src/debug/web"
if [ ! -f "$1" ] || [ ! -x "$1" ]; then
  echo "error: $1 is not an executable bvgeo program" >&2
  exit 2
fi
binary="$(cd "$(dirname "$1")" && pwd)/$(basename "$1")"
output="$2"
missing=0
if [ ! -d "$here/node_modules/playwright-core" ]; then
  echo "error: tests/e2e/node_modules is missing; run: npm ci --prefix tests/e2e" >&2
  missing=1
fi
# The page-level tests serve the browser libraries straight from here.
if [ ! -d "$web/node_modules/leaflet" ]; then
  echo "error: src/debug/web/node_modules is missing; run: npm ci --prefix src/debug/web" >&2
  missing=1
fi
chromium="${BVGEO_CHROMIUM:-/usr/bin/chromium}"
if [ ! -x "$chromium" ]; then
  echo "error: no Chromium at $chromium; install Debian's: apt-get install -y --no-install-recommends chromium" >&2
  missing=1
fi
[ "$missing" -eq 0 ] || exit 2

mkdir -p "$output"
export BVGEO_BINARY="$binary"
export BVGEO_E2E_OUT="$(cd "$output" && pwd)"
export BVGEO_CHROMIUM="$chromium"
cd "$here"
# Files run one after another: each starts its own browser and programs, and
# two at once would only compete for the machine's cores. One `node --test` per
# file, each bounded by `timeout`, rather than --test-concurrency/--test-timeout:
# Debian 12's Node 18 knows neither option.
status=0
for file in ./*.test.mjs; do
  timeout --kill-after=10 180 node --test "$file" || status=1
done
exit "$status"
