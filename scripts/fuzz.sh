#!/usr/bin/env bash
# Builds the fuzz preset (clang 14, libFuzzer, address and undefined-behaviour
# sanitizers) and fuzzes each target, starting from its checked-in corpus
# (tests/fuzz/corpus, left untouched: new inputs go to a scratch directory).
#
# Usage: scripts/fuzz.sh [TARGET...]   (default: every target)
#   FUZZ_SECONDS  time per target (default 10; what CI runs)
#   FUZZ_RUNS     stop a target after this many executions instead (default: none)
#   FUZZ_WORK     keep the grown corpora here instead of a temporary directory
# Prints one line per target: executions and coverage (edges) at the end. A crash,
# leak, timeout or sanitizer report fails the run; its input is left in
# build/fuzz/artifacts/ to be fixed and added to the target's corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
scripts/install-deps.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

bin="$root/build/fuzz/tests/fuzz"
artifacts="$root/build/fuzz/artifacts"
mkdir -p "$artifacts"
work="${FUZZ_WORK:-}"
if [ -z "$work" ]; then
  work="$(mktemp -d)"
  trap 'rm -rf "$work"' EXIT
fi
# The library's files (database, outbox) go to memory when it can: each trigger
# report is synced to disk before it is sent.
if [ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for program in "$bin"/fuzz_*; do targets+=("$(basename "$program" | sed 's/^fuzz_//')"); done
fi

# A target whose corpus or dictionary is another's names it in tests/fuzz/CMakeLists.txt.
shared_with() {
  sed -n "s/^bvgeo_fuzz_target($1 CORPUS \([a-z_0-9]*\)).*/\1/p" tests/fuzz/CMakeLists.txt
}

status=0
for target in "${targets[@]}"; do
  source="$(shared_with "$target")"
  source="${source:-$target}"
  mkdir -p "$work/$target"
  options=(-max_total_time="${FUZZ_SECONDS:-10}" -timeout=60 -rss_limit_mb=4096 -print_final_stats=1
           -artifact_prefix="$artifacts/$target-")
  [ -n "${FUZZ_RUNS:-}" ] && options+=(-runs="$FUZZ_RUNS")
  [ -f "tests/fuzz/dict/$source.dict" ] && options+=(-dict="tests/fuzz/dict/$source.dict")
  log="$work/$target.log"
  seeds=()
  [ -d "tests/fuzz/corpus/$source" ] && seeds=("tests/fuzz/corpus/$source")
  if nice "$bin/fuzz_$target" "${options[@]}" "$work/$target" "${seeds[@]}" >"$log" 2>&1; then
    runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)"
    cov="$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)"
    printf '%-26s %12s executions  %6s edges\n' "$target" "${runs:-?}" "${cov:-?}"
  else
    status=1
    echo "$target: FAILED; the input is in $artifacts:" >&2
    grep -E 'ERROR|SUMMARY|runtime error|Test unit written' "$log" | head -5 >&2 || tail -20 "$log" >&2
  fi
done
exit $status
