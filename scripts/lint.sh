#!/usr/bin/env bash
# Checks the tree's layout (clang-format, .clang-format) and runs the checks of .clang-tidy over
# the library and the platform (`--tidy-tools` adds the tools: noxsim, kelpcat, fleckcat; CI leaves
# them out for time). Exits non-zero, naming each file and finding, when
# either is unclean. `scripts/lint.sh --fix-format` rewrites the files clang-format would change.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh

sources() { find "$@" -type f \( -name '*.h' -o -name '*.cpp' \) | sort; }

tidied='platform|NoxEvpn'
[ "${1:-}" = "--tidy-tools" ] && tidied='platform|NoxEvpn|tools'
if [ "${1:-}" = "--fix-format" ]; then
  sources platform NoxEvpn tools tests bench examples | xargs clang-format -i
  exit 0
fi

status=0
unformatted=$(sources platform NoxEvpn tools tests bench examples |
              xargs clang-format --dry-run 2>&1 | grep -o '^[^:]*:[0-9]*:[0-9]*: warning' |
              cut -d: -f1 | sort -u || true)
if [ -n "$unformatted" ]; then
  echo "not in clang-format's layout (scripts/lint.sh --fix-format rewrites them):"
  echo "$unformatted" | sed 's/^/  /'
  status=1
else
  echo "format: clean"
fi

# The release build's compile commands say how each file is compiled.
cmake --preset default >/dev/null
# They are g++'s; clang's -Wconversion also covers the conversions the tree leaves implicit.
if run-clang-tidy -quiet -p build/default -j "$(nproc)" \
     -extra-arg=-Wno-sign-conversion -extra-arg=-Wno-string-conversion \
     "$PWD/($tidied)/.*\.cpp\$" >build/default/clang-tidy.log 2>&1; then
  echo "clang-tidy: clean"
else
  echo "clang-tidy: findings (whole log in build/default/clang-tidy.log):"
  sed 's/\x1b\[[0-9;]*m//g' build/default/clang-tidy.log | grep -E '^/.*: (warning|error): ' |
    sort -u | sed 's/^/  /'
  status=1
fi
exit $status
