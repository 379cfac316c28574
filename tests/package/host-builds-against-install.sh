#!/usr/bin/env bash
# Installs the build into a scratch prefix and uses it as users' projects would:
#  - examples/host (C++) built with find_package(bvgeo), run against the installed
#    bvgeo program serving the example zones: it must get triggers for its walk;
#  - tests/capi/story.c (C99, bvgeo.h alone) built with pkg-config and -lbvgeo
#    only, warnings as errors, run against libbvgeo.so from the prefix: enter,
#    linger and exit through its callback;
#  - the installed Python package, which finds the installed libbvgeo.so.1 itself.
set -euo pipefail
build_dir="$1"; source_dir="$2"
work="$(mktemp -d)"
server_pid=""
cleanup() { [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT
cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
cmake -S "$source_dir/examples/host" -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/host" >/dev/null
"$work/prefix/bin/bvgeo" zones build "$source_dir/examples/data/kent-places.csv" --out "$work/zones" --app-id demo >/dev/null
# The server prints its base URL once it listens; read it from a pipe.
mkfifo "$work/serve.out"
"$work/prefix/bin/bvgeo" serve --root "$work/zones" --port 0 --quiet >"$work/serve.out" 2>/dev/null &
server_pid=$!
exec 3<"$work/serve.out"
read -r -t 30 first <&3
base="$(grep -o 'http://127.0.0.1:[0-9]*/' <<<"$first" | head -1)"
out="$("$work/host/bvgeo_host" "$work/data" "$base" 2>/dev/null)"
echo "$out"
grep -q "^enter Sittingbourne (gn2637802)$" <<<"$out"
grep -Eq "^device [0-9A-F-]{36}: [1-9][0-9]* triggers stored$" <<<"$out"

# The shared library, versioned.
libdir="$(dirname "$(find "$work/prefix" -name 'libbvgeo.so.1' | head -1)")"
[ -f "$libdir/libbvgeo.so.1" ]
readelf -d "$libdir/libbvgeo.so" | grep -q 'SONAME.*\[libbvgeo\.so\.1\]'

# A C host through pkg-config.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
cc -std=c99 -Wall -Wextra -Werror $(pkg-config --cflags bvgeo) "$source_dir/tests/capi/story.c" \
   -o "$work/story" $(pkg-config --libs bvgeo)
story="$("$source_dir/tests/capi/run-story.sh" "$work/prefix/bin/bvgeo" "$source_dir" \
         env LD_LIBRARY_PATH="$libdir" "$work/story" 2>/dev/null)"
echo "$story"
grep -q "^story: ok$" <<<"$story"
# Its library is the installed one.
LD_LIBRARY_PATH="$libdir" ldd "$work/story" | grep -q "libbvgeo.so.1 => $libdir/libbvgeo.so.1"

# The installed Python package, without being told where the library is.
python="$(command -v /usr/bin/python3 || command -v python3)"
version="$(env -u BVGEO_LIBRARY PYTHONPATH="$libdir/python3/dist-packages" "$python" -c \
  'import bvgeo, bvgeo._native as n; print(bvgeo.version(), n.lib._name)')"
echo "python: $version"
grep -q "^1.3.0 $libdir/libbvgeo.so.1$" <<<"$version"
