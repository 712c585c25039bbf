#!/usr/bin/env bash
# Installs what is missing, builds the library and the merge tool for this
# machine, and merges the bundled default input (a synthetic three-exposure
# scene) into build/default_merge.png.  Arguments go to the tool instead;
# relative paths in them stay relative to the directory run.sh was called from.
set -euo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)
(
  cd "$repo"
  scripts/setup.sh run
  mkdir -p build
  cmake -S . -B build/host -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARO_HDR_TESTS=OFF -DVARO_HDR_BENCH=OFF > build/host.log 2>&1 ||
    { cat build/host.log; exit 1; }
  ninja -C build/host > build/host.log 2>&1 || { tail -50 build/host.log; exit 1; }
)

if [ $# -eq 0 ]; then set -- --out "$repo/build/default_merge.png"; fi
exec "$repo/build/host/tools/varo_hdr_merge" "$@"
