#!/usr/bin/env bash
# scripts/check-layers.sh on small trees: includes of the same layer and of layers
# above pass, in both include forms; an include of a layer below fails and names the
# file, the line and both layers; a file no layer covers fails too.
# Usage: check-layers-test.sh SOURCE_DIR
set -euo pipefail
check="$1/scripts/check-layers.sh"
tree="$(mktemp -d)"
trap 'rm -rf "$tree"' EXIT
status=0
fail() { echo "FAIL: $*"; status=1; }
put() { mkdir -p "$(dirname "$tree/$1")"; printf '%s\n' "${@:2}" >"$tree/$1"; }

put include/bvgeo/BVGeoTracker.hpp '#include <bvgeo/platform/Clock.hpp>'
put include/bvgeo/ConfigOptions.hpp '#include <string>'
put src/platform/Clock.hpp '#include <bvgeo/ConfigOptions.hpp>' '#include "platform/linux/SystemClock.hpp"'
put src/platform/linux/SystemClock.hpp ''
put src/zone/ZoneManager.cpp '#include "zone/ZoneManager.hpp"' '#include <bvgeo/platform/Clock.hpp>'
put src/zone/ZoneManager.hpp '#include "datastore/BV1Database.hpp"'
put src/zone/ZoneBuilder.cpp '#include "zone/ZoneManager.hpp"'
put src/datastore/BV1Database.hpp '#include <sqlite3.h>'
put apps/main.cpp '#include "Cli.hpp"' '#include <bvgeo/BVGeoTracker.hpp>' '#include "zone/ZoneBuilder.hpp"'
put apps/Cli.hpp ''
out="$("$check" "$tree" 2>&1)" || fail "a tree that keeps the order fails: $out"

put src/zone/ZoneManager.hpp '#include "datastore/BV1Database.hpp"' '' '#include <bvgeo/BVGeoTracker.hpp>'
put src/datastore/BV1Database.hpp '#include "zone/ZoneBuilder.hpp"'
if out="$("$check" "$tree" 2>&1)"; then fail "upward includes pass"; fi
grep -qxF 'src/zone/ZoneManager.hpp:3 includes <bvgeo/BVGeoTracker.hpp>: layer services may not include layer facade' \
  <<<"$out" || fail "the facade include is not reported as expected: $out"
grep -qxF 'src/datastore/BV1Database.hpp:1 includes "zone/ZoneBuilder.hpp": layer storage may not include layer tools' \
  <<<"$out" || fail "the tools include is not reported as expected: $out"
[ "$(grep -c 'may not include' <<<"$out")" -eq 2 ] || fail "other lines reported: $out"

put src/datastore/BV1Database.hpp ''
put src/zone/ZoneManager.hpp ''
put src/elsewhere/Thing.cpp ''
if out="$("$check" "$tree" 2>&1)"; then fail "a file outside every layer passes"; fi
grep -qF 'src/elsewhere/Thing.cpp: no layer' <<<"$out" || fail "the unknown file is not named: $out"

[ "$status" -eq 0 ] && echo "check-layers passes the ordered tree and reports each upward include"
exit "$status"
