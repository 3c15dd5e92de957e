#!/usr/bin/env bash
# Builds the libFuzzer harnesses (the `fuzz` build preset: the sanitizer build's harnesses) and
# runs each for SECONDS (default 30), two at a time, each over a copy of its seed corpus. Exits
# non-zero when a harness finds a crash, a leak or a hang, and says where that input was saved.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"
case "$seconds" in
  '' | *[!0-9]*) echo "usage: scripts/fuzz.sh [SECONDS]" >&2; exit 2 ;;
esac

scripts/deps.sh
cmake --preset asan >/dev/null
cmake --build --preset fuzz

# Each run works in build/asan/fuzz-runs/NAME: the corpus grows there, never in tests/fuzz.
runs="$PWD/build/asan/fuzz-runs"
rm -rf "$runs"
mkdir -p "$runs"

run_one() {
  local name="$1" seconds="$2" runs="$3"
  local dir="$runs/$name"
  mkdir -p "$dir/corpus" "$dir/artifacts" "$dir/tmp"
  # Seeds: the harness's corpus, if it has one; the scenario harness's are every scenario the
  # tests run, read where they live.
  if [ -d "tests/fuzz/corpus/$name" ]; then cp tests/fuzz/corpus/"$name"/* "$dir/corpus/"; fi
  if [ "$name" = scenario_fuzz ]; then cp tests/scenarios/*.nox examples/*.nox "$dir/corpus/"; fi
  local dict=()
  [ -f "tests/fuzz/$name.dict" ] && dict=(-dict="tests/fuzz/$name.dict")
  # A unit that takes 20 s is a hang; 2 GB of memory is a leak or a runaway allocation.
  if TMPDIR="$dir/tmp" "build/asan/tests/fuzz/$name" -max_total_time="$seconds" -timeout=20 \
       -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$dir/artifacts/" "${dict[@]}" \
       "$dir/corpus" >"$dir/log" 2>&1; then
    echo "$name: no crash ($(grep -m1 -o 'stat::number_of_executed_units: *[0-9]*' "$dir/log" |
                              grep -o '[0-9]*$') runs)"
  else
    echo "$name: FAILED, log $dir/log"
    grep -m3 -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$dir/log" | sed 's/^/  /' || true
    for input in "$dir"/artifacts/*; do
      [ -e "$input" ] && echo "  input saved in $input (reproduce: build/asan/tests/fuzz/$name $input)"
    done
    return 1
  fi
}
export -f run_one

status=0
# One run per harness, tests/fuzz/NAME.cpp, whether or not it has a corpus directory.
for source in tests/fuzz/*.cpp; do basename "$source" .cpp; done |
  xargs -P 2 -I{} bash -c 'run_one "$@"' _ {} "$seconds" "$runs" || status=1
exit $status
