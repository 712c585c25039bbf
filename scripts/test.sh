#!/usr/bin/env bash
# Installs what is missing, builds for x86-64, armv7 (NEON, tests under
# qemu-arm on an armv7 core) and AArch64 (qemu-aarch64), plus sanitizer builds
# on the host (ThreadSanitizer, AddressSanitizer, UndefinedBehaviorSanitizer)
# and the libFuzzer target, and runs every test.  Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh test

jobs=$(nproc)
status=0
run_target() { # name, extra cmake args...
  local name=$1; shift
  local dir=build/$name
  echo "=== $name"
  local t0=$SECONDS
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARO_HDR_BENCH=OFF "$@" > "$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; return 1; }
  ninja -C "$dir" -j "$jobs" > "$dir.build.log" 2>&1 || { tail -50 "$dir.build.log"; return 1; }
  (cd "$dir" && ctest -j "$jobs" --output-on-failure --timeout 1200) || return 1
  echo "=== $name: built and tested in $((SECONDS - t0)) s"
}
mkdir -p build
run_target x86_64 || status=1
run_target armv7 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armv7-linux-gnueabihf.cmake || status=1
run_target aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake || status=1
run_target tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVARO_HDR_SANITIZE=thread -DVARO_HDR_TOOLS=OFF || status=1
run_target asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVARO_HDR_SANITIZE=address -DVARO_HDR_TOOLS=OFF || status=1
run_target ubsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVARO_HDR_SANITIZE=undefined -DVARO_HDR_TOOLS=OFF || status=1
# libFuzzer (clang): replays tests/fuzz/corpus, then fuzzes the merge for a fixed budget.
run_target fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVARO_HDR_SANITIZE=address,undefined -DVARO_HDR_FUZZ=ON -DVARO_HDR_TESTS=OFF -DVARO_HDR_TOOLS=OFF || status=1
[ $status -eq 0 ] && echo "all targets passed" || echo "some targets FAILED"
exit $status
