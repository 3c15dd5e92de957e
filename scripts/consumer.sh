#!/usr/bin/env bash
# Installs a built preset (default: "default") into a scratch prefix under build/, then builds
# examples/consumer against that installation, as a project of its own would, and runs it.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
prefix="$PWD/build/$preset-install"
consumer="$PWD/build/$preset-consumer"
rm -rf "$prefix" "$consumer"
cmake --install "build/$preset" --prefix "$prefix" >/dev/null
cmake -S examples/consumer -B "$consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$consumer"
"$consumer/consumer"
