#!/usr/bin/env bash
# Builds from clean and runs every test: native, formatting, then the whole suite again for
# AArch64 under qemu-aarch64. Installs what it needs from Debian's packages when missing.
#
#   scripts/test.sh            # everything
#   scripts/test.sh native     # one stage: native | format | aarch64 | asan | tsan
set -euo pipefail

top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=(native format aarch64 asan tsan)

need=(cmake ninja-build g++ googletest clang-format g++-aarch64-linux-gnu qemu-user
      android-libcutils-dev android-liblog-dev)
missing=()
for p in "${need[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing: ${missing[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
fi

jobs=$(nproc)

run_native() {
  echo "== native build"
  rm -rf out/native
  cmake -S . -B out/native -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build out/native -j "$jobs"
  echo "== native tests"
  (cd out/native && ctest -j "$jobs" --output-on-failure)
}

run_format() {
  echo "== clang-format"
  git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
  echo "formatting clean"
}

run_aarch64() {
  echo "== aarch64 build"
  rm -rf out/aarch64
  cmake -S . -B out/aarch64 -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake >/dev/null
  cmake --build out/aarch64 -j "$jobs"
  echo "== aarch64 tests (qemu-aarch64)"
  (cd out/aarch64 && ctest -j "$jobs" --output-on-failure)
}

# The whole suite again under a sanitizer; any report fails the run.
run_sanitizer() {
  local name=$1 flags=$2
  echo "== $name build ($flags)"
  rm -rf "out/$name"
  cmake -S . -B "out/$name" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZOK_SANITIZE="$flags" >/dev/null
  cmake --build "out/$name" -j "$jobs"
  echo "== $name tests"
  (cd "out/$name" &&
   ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
   TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
   ctest -j "$jobs" --output-on-failure)
}

for s in "${stages[@]}"; do
  case "$s" in
    native) run_native ;;
    format) run_format ;;
    aarch64) run_aarch64 ;;
    asan) run_sanitizer asan address,undefined ;;
    tsan) run_sanitizer tsan thread ;;
    *) echo "unknown stage: $s" >&2; exit 2 ;;
  esac
done
