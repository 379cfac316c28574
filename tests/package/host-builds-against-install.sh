#!/usr/bin/env bash
# Installs the build into a scratch prefix, builds examples/host against it with
# find_package(bvgeo) as a user's project would, serves the example zones with the
# installed bvgeo program, and runs the host: it must get triggers for its walk.
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
