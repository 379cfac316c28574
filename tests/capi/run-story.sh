#!/usr/bin/env bash
# Serves the story's one fence (tests/capi/story-places.csv, app id "story") with
# the given bvgeo program on a free loopback port, then runs a story host as
# HOST... DATA_DIR SERVER_URL. Usage: run-story.sh BVGEO_CLI SOURCE_DIR HOST...
set -euo pipefail
cli="$1"; source_dir="$2"; shift 2
work="$(mktemp -d)"
server_pid=""
cleanup() {
  if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
"$cli" zones build "$source_dir/tests/capi/story-places.csv" --out "$work/zones" --app-id story >/dev/null
# The server prints its base URL once it listens; read it from a pipe.
mkfifo "$work/serve.out"
"$cli" serve --root "$work/zones" --port 0 --quiet >"$work/serve.out" 2>/dev/null &
server_pid=$!
exec 3<"$work/serve.out"
read -r -t 30 first <&3
base="$(grep -o 'http://127.0.0.1:[0-9]*/' <<<"$first" | head -1)"
"$@" "$work/data" "$base"
