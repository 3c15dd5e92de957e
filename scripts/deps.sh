#!/usr/bin/env bash
# Installs the Debian packages that building, testing, fuzzing, linting and benchmarking need,
# when any is missing.
set -euo pipefail
packages=(cmake ninja-build g++ clang libclang-rt-14-dev clang-format clang-tidy googletest libgtest-dev libgmock-dev libbenchmark-dev
          librapidcheck-dev libspdlog-dev liblmdb-dev libabsl-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
