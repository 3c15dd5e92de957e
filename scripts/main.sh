#!/usr/bin/env bash
# Builds the release preset and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
# Until the simulated agent lands, the main job is the entity framework's benchmark against
# std::unordered_map at 1K members.
build/default/bench/vel/vel_bench --benchmark_filter='/1024$' --benchmark_min_time=0.1
