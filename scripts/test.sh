#!/usr/bin/env bash
# Builds one preset (default: "default") and runs every test of it: unit suites and noxsim scenarios.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset"
# The release build is also installed and used from a project of its own.
if [ "$preset" = default ]; then scripts/consumer.sh "$preset"; fi
