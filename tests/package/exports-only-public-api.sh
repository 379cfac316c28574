#!/usr/bin/env bash
# What libbvgeo.so exports: the C API (bvgeo_*) and the public C++ API, nothing from
# a dependency (SQLite, libcurl, nlohmann::json, cpp-httplib, ...) and no class or
# function of the library's internals, which are those declared in headers under
# src/ (the Linux implementations and helpers included: a host reaches them through
# the factories in include/bvgeo/platform/).
# Usage: exports-only-public-api.sh LIBBVGEO_SO SOURCE_DIR
set -euo pipefail
lib="$1"; source_dir="$2"
symbols="$(nm -D --defined-only "$lib" | awk '{print $3}')"
demangled="$(c++filt <<<"$symbols")"
status=0
fail() { echo "FAIL: $*"; status=1; }

[ -n "$symbols" ] || fail "no symbols exported"
grep -qx 'bvgeo_open' <<<"$symbols" || fail "the C API (bvgeo_open) is not exported"
grep -q '^bvgeo::BVGeoTracker::sharedInstance()' <<<"$demangled" || fail "the C++ facade is not exported"

# Dependencies, by their prefixes and namespaces.
if bad="$(grep -E '^(sqlite3|curl_|Curl_|XML_|gps_|SSL_|z_)' <<<"$symbols")"; then fail "dependency symbols: $(head -5 <<<"$bad")"; fi
if bad="$(grep -E 'nlohmann|httplib|GeographicLib|std::' <<<"$demangled" | grep -v '^bvgeo::\|^typeinfo\|^vtable\|^non-virtual thunk\|^virtual thunk')"; then
  fail "foreign namespaces: $(head -5 <<<"$bad")"
fi
# Everything exported belongs to the C API or to namespace bvgeo.
if bad="$(grep -Ev '^(bvgeo_|bvgeo::|typeinfo for bvgeo::|typeinfo name for bvgeo::|vtable for bvgeo::|non-virtual thunk to bvgeo::|virtual thunk to bvgeo::)' <<<"$demangled")"; then
  fail "outside the API: $(head -5 <<<"$bad")"
fi

# Internal classes and functions: the names that headers under src/ declare.
internal="$(find "$source_dir/src" -name '*.hpp' -not -path '*/node_modules/*' \
  -exec grep -hoE '^(class|struct) [A-Z][A-Za-z0-9_]*|^[A-Za-z_:<>, ]+ [a-z][A-Za-z0-9_]*\(' {} + |
  sed -E 's/^(class|struct) //; s/^.* ([a-z][A-Za-z0-9_]*)\($/\1/' | sort -u)"
while read -r name; do
  [ -n "$name" ] || continue
  # A name an installed header also declares is public (rawValue, say).
  if grep -rqE "\b$name\b" "$source_dir/include" --include='*.hpp' --include='*.h'; then continue; fi
  if bad="$(grep -E "bvgeo::(capi::)?$name(::|\(|$)" <<<"$demangled")"; then fail "internal $name: $(head -3 <<<"$bad")"; fi
done <<<"$internal"

count="$(wc -l <<<"$symbols")"
if [ "$status" -eq 0 ]; then echo "libbvgeo.so exports $count symbols, all of the C API and the public C++ API"; fi
exit "$status"
