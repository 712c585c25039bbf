#!/usr/bin/env bash
# Installs the Debian packages a profile needs, only those that are missing.
#   scripts/setup.sh run    native build and the merge tool
#   scripts/setup.sh python the above and the Python module (pybind11, Debian's numpy)
#   scripts/setup.sh test   everything: tests (pytest too), cross toolchains, qemu, benchmarks, clang (fuzzing)
set -euo pipefail
profile=${1:-test}

# The merge tool's image libraries are needed by every profile.
pkgs=(g++ cmake ninja-build pkg-config libpng-dev libjpeg62-turbo-dev libtiff-dev libexif-dev
      libyuv-dev nlohmann-json3-dev)
if [ "$profile" = python ] || [ "$profile" = test ]; then
  pkgs+=(pybind11-dev python3-dev python3-numpy)
fi
if [ "$profile" = test ]; then
  pkgs+=(python3-pytest googletest libsimde-dev libbenchmark-dev
         g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user
         clang libclang-rt-14-dev)
fi

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]} (run as root, or install them)" >&2
  exit 1
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
for attempt in 1 2 3 4 5; do
  if apt-get update -qq && apt-get install -y -qq --no-install-recommends "${missing[@]}"; then
    exit 0
  fi
  echo "setup: apt failed (attempt $attempt), retrying in $((attempt * 10)) s" >&2
  sleep $((attempt * 10))
done
echo "setup: could not install ${missing[*]}" >&2
exit 1
