#!/usr/bin/env bash
# The long soak: the suite's soak test (tests/stress_test.cpp, SoakTest) kept going for SECONDS
# seconds and at least 100,001 connect events, in one process life that starts with 1,100
# descriptors open. Prints a progress line a minute and the closing figures; fails like the test.
#
#   scripts/soak.sh 1860                      # build dir out/soak, configured on first use
#   ZOK_SOAK_BUILD=out/other scripts/soak.sh 600
#
# The build dir is rebuilt before the run; do not rebuild it while a soak runs from it.
set -euo pipefail

seconds=${1:?usage: scripts/soak.sh SECONDS}
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
build=${ZOK_SOAK_BUILD:-out/soak}

if [ ! -f "$build/build.ninja" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j "$(nproc)" --target stress_test
echo "== soak for $seconds s from $(date -u +%FT%TZ), commit $(git rev-parse --short HEAD)"
started=$SECONDS
ZOK_SOAK_SECONDS=$seconds "$build/tests/stress_test" --gtest_filter='SoakTest.*'
echo "== soak done in $((SECONDS - started)) s at $(date -u +%FT%TZ)"
