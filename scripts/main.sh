#!/usr/bin/env bash
# Builds the release preset and runs the main job: noxsim, the simulated forwarding agent, on the
# first example scenario (the MPLS flooding path from flood sets to hardware configuration).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default
build/default/tools/noxsim/noxsim examples/mpls-flooding.nox
