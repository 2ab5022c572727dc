#!/usr/bin/env bash
# Builds the entity, the host runner, rild-sim and rild-tap, then runs examples/demo.script: the
# real libzok_rilproxy.so in the host framework against the built-in simulated RIL daemon.
# Installs what it needs from Debian's packages when missing.
#
#   scripts/demo.sh                  # text: one line per frame and per event
#   scripts/demo.sh --format json    # one JSON object per line
#   scripts/demo.sh --quiet          # without the entity's log lines (stderr)
#
# Extra arguments go to rilproxy-host. The run ends with the entity's own teardown, which exits
# the process with status 0.
set -euo pipefail

top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"

. scripts/lib/packages.sh
ensure_packages cmake ninja-build g++ googletest

if [ ! -f out/native/build.ninja ]; then
  # The Android header check is the test suite's business; the demo needs no Android headers.
  cmake -S . -B out/native -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DZOK_CHECK_ANDROID_HEADERS=OFF >/dev/null
fi
# What the demo and the README's capture chain run: the runner (which depends on the shared
# object), rild-sim and rild-tap.
cmake --build out/native -j "$(nproc)" --target rilproxy-host rild-sim rild-tap >&2

exec out/native/tools/rilproxy-host --sim "$@" examples/demo.script
