#!/usr/bin/env bash
# The packages as users install them. cpack -G DEB, lintian with no error, the four
# packages unpacked into a fresh directory tree (dpkg -x), then users' projects
# built against that tree and run against its bvgeo program serving the Kent zones:
#  - examples/host (C++), with find_package(bvgeo): triggers, nothing owed;
#  - tests/capi/story.c and the README's walk.c, C99 with -Wall -Wextra -Werror,
#    with pkg-config alone: story's checks pass; walk's standard output is its own
#    trigger line and nothing of the library's, and the server got its report once;
#  - the Python package from the tree with the README's example, and pip install
#    of the package in a fresh venv (offline, Debian's setuptools) replaying a
#    track with no environment variable set.
# And the build tree's pkg-config file: the sources' headers, no -D flags.
#   host-builds-against-install.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build_dir="$(cd "$1" && pwd)"; source_dir="$(cd "$2" && pwd)"
work="$(mktemp -d)"
server_pid=""
cleanup() {
  if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
python=/usr/bin/python3; [ -x "$python" ] || python="$(command -v python3)"

# Packages, checked and unpacked.
(cd "$work" && cpack -G DEB --config "$build_dir/CPackConfig.cmake" -B "$work/debs" >/dev/null)
debs=("$work"/debs/*.deb)
[ ${#debs[@]} -eq 4 ] || fail "cpack made ${#debs[@]} packages, not 4"
lintian --fail-on error "${debs[@]}" || fail "lintian reports errors"
for deb in "${debs[@]}"; do dpkg-deb -x "$deb" "$work/tree"; done
prefix="$work/tree/usr"
libdir="$(dirname "$(find "$prefix" -name 'libbvgeo.so.1' | head -1)")"
# Matched on captured text: with pipefail, grep -q leaving early can kill the writer
# with SIGPIPE and fail the whole pipeline.
grep -q 'SONAME.*\[libbvgeo\.so\.1\]' <<<"$(readelf -d "$libdir/libbvgeo.so.1")" || fail "no SONAME libbvgeo.so.1"

# pkg-config: installed and build tree, C flags for a C compiler only.
for tree in "$libdir/pkgconfig:$prefix/include" "$build_dir:$source_dir/include"; do
  cflags="$(PKG_CONFIG_PATH="${tree%%:*}" pkg-config --cflags bvgeo | xargs)"
  [[ "$cflags" != *-D* ]] || fail "pkg-config --cflags carries defines: $cflags"
  [ "$(realpath -m "${cflags#-I}")" = "$(realpath -m "${tree#*:}")" ] || fail "pkg-config --cflags: $cflags"
done
export PKG_CONFIG_PATH="$libdir/pkgconfig"

# The reference server of the tree, serving the Kent zones for app id "demo".
"$prefix/bin/bvgeo" zones build "$source_dir/examples/data/kent-places.csv" --out "$work/zones" --app-id demo >/dev/null
mkfifo "$work/serve.out"
"$prefix/bin/bvgeo" serve --root "$work/zones" --port 0 --quiet >"$work/serve.out" 2>/dev/null &
server_pid=$!
exec 3<"$work/serve.out"
read -r -t 30 first <&3
base="$(grep -o 'http://127.0.0.1:[0-9]*/' <<<"$first" | head -1)"
reports() { # event fence_id: how many reports of it the server holds
  "$python" -c 'import json, sys, urllib.request
listed = json.load(urllib.request.urlopen(sys.argv[1] + "api/v1/app/demo/triggers", timeout=30))["triggers"]
print(sum(t["event"] == sys.argv[2] and t["fenceId"] == sys.argv[3] for t in listed))' "$base" "$1" "$2"
}

# C++: examples/host with find_package.
cmake -S "$source_dir/examples/host" -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/host" >/dev/null
out="$("$work/host/bvgeo_host" "$work/data" "$base" 2>/dev/null)"
echo "$out"
grep -q "^enter Sittingbourne (gn2637802)$" <<<"$out" || fail "examples/host got no enter"
grep -Eq "^device [0-9A-F-]{36}: [1-9][0-9]* triggers stored, 0 reports owed$" <<<"$out" || fail "examples/host"

# C: story.c and the README's walk.c, with pkg-config alone.
cc -std=c99 -Wall -Wextra -Werror "$source_dir/tests/capi/story.c" -o "$work/story" $(pkg-config --cflags --libs bvgeo)
story="$("$source_dir/tests/capi/run-story.sh" "$prefix/bin/bvgeo" "$source_dir" \
         env LD_LIBRARY_PATH="$libdir" "$work/story" 2>/dev/null)"
echo "$story"
grep -q "^story: ok$" <<<"$story" || fail "story.c"
grep -q "libbvgeo.so.1 => $libdir/libbvgeo.so.1" <<<"$(LD_LIBRARY_PATH="$libdir" ldd "$work/story")" \
  || fail "story.c does not load the unpacked libbvgeo.so.1"

# The README's C example as it stands, pointed at this server.
awk '/^```c$/ { keep = 1; next } /^```$/ { keep = 0 } keep' "$source_dir/README.md" \
  | sed "s|http://127.0.0.1:8080/|$base|g" >"$work/walk.c"
grep -q bvgeo_close "$work/walk.c" || fail "no C example in the README"
cc -std=c99 -Wall -Wextra -Werror "$work/walk.c" -o "$work/walk" $(pkg-config --cflags --libs bvgeo)
walk_status=0
walk="$(env LD_LIBRARY_PATH="$libdir" XDG_DATA_HOME="$work/xdg" "$work/walk" 2>"$work/walk.err")" || walk_status=$?
echo "walk.c: exit $walk_status; stdout: $walk"
[ "$walk_status" -eq 0 ] || { cat "$work/walk.err" >&2; fail "walk.c exited $walk_status"; }
[ "$walk" = "enter Sittingbourne (gn2637802)" ] || fail "walk.c's standard output holds more than its trigger"
[ -s "$work/walk.err" ] || fail "the library's diagnostics did not reach standard error"
[ "$(reports enter gn2637802)" = 2 ] || fail "the server holds $(reports enter gn2637802) Sittingbourne enters, not 2 (host, walk)"

# Python from the tree: the README's example, pointed at this server.
awk '/^```python$/ { keep = 1; next } /^```$/ { keep = 0 } keep' "$source_dir/README.md" \
  | sed "s|http://127.0.0.1:8080/|$base|g; s|examples/data/|$source_dir/examples/data/|g" >"$work/readme.py"
py="$(cd "$work" && env -u BVGEO_LIBRARY PYTHONPATH="$prefix/lib/python3/dist-packages" LD_LIBRARY_PATH="$libdir" \
      "$python" "$work/readme.py" 2>/dev/null)"
grep -q "^enter Sittingbourne gn2637802$" <<<"$py" || fail "the README's Python example"
grep -q "^triggers: 6 enter, 35 linger, 5 exit$" <<<"$py" || fail "the README's Python example's summary"

# pip, offline, into a fresh venv that sees Debian's packages: the package staged in
# the build tree (library beside it) is found with no environment variable; the
# source tree's builds as well.
"$python" -m venv --system-site-packages "$work/venv"
cp -r "$build_dir/python" "$work/staged"
cp -r "$source_dir/python" "$work/source"
"$work/venv/bin/pip" install --quiet --no-build-isolation --no-index "$work/staged"
cat >"$work/stays.py" <<PY
import sys
import bvgeo
result = bvgeo.replay(sys.argv[1], app_id="demo", api_base="${base}api/v1/app/", assets_base="$base")
for t in result.triggers:
    if t.event != "linger":
        print(t.event, t.fence_name)
PY
stays="$(cd "$work" && env -i PATH=/usr/bin:/bin HOME="$work" "$work/venv/bin/python" "$work/stays.py" \
         "$source_dir/examples/data/kent-run-2014-05-10.gpx" 2>/dev/null)"
echo "pip-installed package, stays: $(tr '\n' ';' <<<"$stays")"
grep -q "^enter Sittingbourne$" <<<"$stays" || fail "the pip-installed package"
"$work/venv/bin/pip" install --quiet --no-build-isolation --no-index --force-reinstall "$work/source"
env -u BVGEO_LIBRARY LD_LIBRARY_PATH="$libdir" "$work/venv/bin/python" -c 'import bvgeo; print("pip from source:", bvgeo.version())'
echo "packages: ok"
