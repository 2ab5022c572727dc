#!/usr/bin/env bash
# Builds from clean and runs every test: native, the whole suite again with clang (locking
# annotations checked), formatting, coverage, then the suite for AArch64 under qemu-aarch64, under
# the sanitizers and fuzzing, and the device build (Android.bp read by Soong, clang for AArch64,
# the shared object checked as a device loads it). Installs what it needs from Debian's packages
# when missing.
#
#   scripts/test.sh            # everything
#   scripts/test.sh native     # one stage: native | clang | format | coverage | aarch64 | device
#                              #            | asan | tsan | fuzz
#   scripts/test.sh valgrind   # not in the default list: integration tests under memcheck
set -euo pipefail

top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
. scripts/lib/packages.sh
stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=(native clang format coverage aarch64 device asan tsan fuzz)

need=(cmake ninja-build g++ googletest clang-format g++-aarch64-linux-gnu qemu-user
      android-libcutils-dev android-liblog-dev)
for s in "${stages[@]}"; do
  case "$s" in
    coverage) need+=(gcovr) ;;
    # The native suite checks the Wireshark dissector with tshark and the harness client with
    # pytest (each skipped where it is missing).
    native) need+=(tshark python3-pytest) ;;
    clang) need+=(clang) ;;
    fuzz) need+=(clang libclang-rt-14-dev) ;;
    # Soong and Blueprint as Go sources (and the protobuf package Soong imports), built offline.
    device) need+=(clang lld golang-go golang-android-soong-dev golang-github-google-blueprint-dev
                   golang-github-golang-protobuf-1-3-dev blueprint-tools) ;;
    valgrind) need+=(valgrind) ;;
  esac
done
ensure_packages "${need[@]}"

jobs=$(nproc)

run_native() {
  echo "== native build"
  rm -rf out/native
  cmake -S . -B out/native -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build out/native -j "$jobs"
  echo "== native tests"
  (cd out/native && ctest -j "$jobs" --output-on-failure)
}

# The device's compiler: the whole suite built with clang, whose -Wthread-safety (an error, like
# every warning) checks the GUARDED_BY / REQUIRES / ACQUIRE annotations.
run_clang() {
  echo "== clang build (-Wthread-safety)"
  rm -rf out/clang
  cmake -S . -B out/clang -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
        -DCMAKE_CXX_COMPILER=clang++ >/dev/null
  cmake --build out/clang -j "$jobs"
  echo "== clang tests"
  (cd out/clang && ctest -j "$jobs" --output-on-failure)
}

run_format() {
  echo "== clang-format"
  git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
  echo "formatting clean"
}

# The whole suite in a gcov build, then line and branch figures for the entity's own code. The
# floors sit a little below what the suite reaches, so a change that leaves code untested fails.
coverage_line_floor=97
coverage_branch_floor=71
run_coverage() {
  echo "== coverage build (gcc --coverage)"
  rm -rf out/coverage
  cmake -S . -B out/coverage -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZOK_COVERAGE=ON >/dev/null
  cmake --build out/coverage -j "$jobs"
  echo "== coverage tests"
  (cd out/coverage && ctest -j "$jobs" --output-on-failure)
  echo "== coverage of core/ transport/ handlers/ codec/"
  # One gcovr thread, and a time limit: Debian's gcovr 5.2 can hang in its worker threads after an
  # error instead of failing.
  timeout 600 gcovr -r . out/coverage --filter core/ --filter transport/ --filter handlers/ \
        --filter codec/ --print-summary --fail-under-line "$coverage_line_floor" \
        --fail-under-branch "$coverage_branch_floor"
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

# The device build. First Android.bp through Soong's own parser and property structs
# (tools/bpcheck, built offline in GOPATH mode from Debian's Go sources; its table of bad snippets
# runs first). Then entity and suite with clang for AArch64, lld and the platform's default
# hardening (cmake/aarch64-linux-gnu-clang.cmake), the entity's compile commands checked against
# the module's cflags and cppflags, the shared object checked as the loader sees it
# (scripts/lib/device_object.sh), and the suite under qemu-aarch64.
run_device() {
  local go=(env GO111MODULE=off GOPATH=/usr/share/gocode GOCACHE="$top/out/gocache" GOENV=off
            GOFLAGS= GOPROXY=off)
  echo "== device: Android.bp (Soong's parser and property structs)"
  mkdir -p out
  [ -z "$(gofmt -l tools/bpcheck)" ] || { echo "gofmt would reformat tools/bpcheck" >&2; return 1; }
  "${go[@]}" go test -p "$jobs" ./tools/bpcheck
  "${go[@]}" go build -p "$jobs" -o out/bpcheck ./tools/bpcheck
  out/bpcheck -root .
  echo "== device: clang aarch64 build (hardened, lld)"
  rm -rf out/device
  cmake -S . -B out/device -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu-clang.cmake \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
  cmake --build out/device -j "$jobs"
  out/bpcheck -root . -compile-commands out/device/compile_commands.json
  echo "== device: the shared object as the loader sees it"
  # shellcheck disable=SC2046  # one word per library
  scripts/lib/device_object.sh out/device/libzok_rilproxy.so /usr/aarch64-linux-gnu \
    out/device/platform/host $(out/bpcheck -root . -print-shared-libs)
  echo "object checks clean"
  echo "== device tests (qemu-aarch64)"
  (cd out/device && ctest -j "$jobs" --output-on-failure)
}

# The whole suite again under a sanitizer; any report fails the run. ASan+UBSan is built the way
# an engineer would add it by hand (plain compiler flags, no project option), so code that must
# know it runs under a sanitizer is proven to find out by itself; TSan uses the project's option.
run_sanitizer() {
  local name=$1 flags=$2 how=$3
  echo "== $name build ($flags, $how)"
  rm -rf "out/$name"
  local config=(-DZOK_SANITIZE="$flags")
  if [ "$how" = plain ]; then
    local cflags="-fsanitize=$flags -fno-omit-frame-pointer -fno-sanitize-recover=all"
    config=(-DCMAKE_C_FLAGS="$cflags" -DCMAKE_CXX_FLAGS="$cflags")
  fi
  cmake -S . -B "out/$name" -G Ninja -DCMAKE_BUILD_TYPE=Debug "${config[@]}" >/dev/null
  cmake --build "out/$name" -j "$jobs"
  echo "== $name tests"
  (cd "out/$name" &&
   ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
   TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
   ctest -j "$jobs" --output-on-failure)
}

# Each libFuzzer target for a short bounded time, from a scratch copy of its seeds so that the
# repository's corpus is not modified. Any crash, leak or broken invariant fails the run.
fuzz_seconds=${ZOK_FUZZ_SECONDS:-20}
run_fuzz() {
  echo "== fuzz build (clang, address,undefined)"
  rm -rf out/fuzz
  cmake -S . -B out/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
        -DCMAKE_CXX_COMPILER=clang++ -DZOK_BUILD_FUZZ=ON -DZOK_SANITIZE=address,undefined >/dev/null
  cmake --build out/fuzz -j "$jobs" --target fuzz_targets
  local scratch
  scratch=$(mktemp -d)
  for dir in tests/fuzz/corpus/*/; do
    local name
    name=$(basename "$dir")
    echo "== fuzz $name (${fuzz_seconds}s)"
    cp -r "$dir" "$scratch/$name"
    if ! (cd "$scratch" && UBSAN_OPTIONS=print_stacktrace=1 \
          "$top/out/fuzz/tests/fuzz/${name}_fuzz" -max_total_time="$fuzz_seconds" \
          -print_final_stats=1 "$scratch/$name" >"$scratch/$name.log" 2>&1); then
      tail -n 60 "$scratch/$name.log"
      echo "fuzz $name failed; reproducer and log kept in $scratch" >&2
      return 1
    fi
    grep -E '^#[0-9]+[[:space:]]+DONE' "$scratch/$name.log" || true
  done
  rm -rf "$scratch"
}

# The integration tests under valgrind's memcheck: a second leak and memory-error check that
# needs no rebuild with sanitizers. Slow (minutes), so not part of the default list.
run_valgrind() {
  echo "== valgrind build"
  rm -rf out/valgrind
  cmake -S . -B out/valgrind -G Ninja -DCMAKE_BUILD_TYPE=Debug >/dev/null
  local targets=(reader_thread_test handlers_test stress_test)
  cmake --build out/valgrind -j "$jobs" --target "${targets[@]}"
  local t name
  for t in "${targets[@]}"; do
    echo "== valgrind $t"
    # One process per test, as ctest runs them: a connected reader stays until its process ends.
    # Death tests re-execute the program; memcheck follows them into the child.
    for name in $("out/valgrind/tests/$t" --gtest_list_tests |
                  awk '/^[^ ]/ {suite=$1} /^  / {print suite $1}'); do
      valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite,indirect \
        --error-exitcode=1 --trace-children=yes \
        "out/valgrind/tests/$t" --gtest_filter="$name" --gtest_brief=1 >/dev/null ||
        { echo "valgrind: $t $name failed" >&2; return 1; }
    done
    echo "clean"
  done
}

for s in "${stages[@]}"; do
  started=$SECONDS
  case "$s" in
    native) run_native ;;
    clang) run_clang ;;
    format) run_format ;;
    coverage) run_coverage ;;
    aarch64) run_aarch64 ;;
    device) run_device ;;
    asan) run_sanitizer asan address,undefined plain ;;
    tsan) run_sanitizer tsan thread option ;;
    fuzz) run_fuzz ;;
    valgrind) run_valgrind ;;
    *) echo "unknown stage: $s" >&2; exit 2 ;;
  esac
  echo "== stage $s done in $((SECONDS - started)) s"
done
