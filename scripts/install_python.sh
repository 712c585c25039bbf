#!/usr/bin/env bash
# Builds the varo_hdr Python module for one interpreter and installs it, with
# its type stub, into that interpreter's site-packages (a venv's when given
# the venv's python).  Offline: everything comes from Debian packages.
#   scripts/install_python.sh [PYTHON]     default /usr/bin/python3
set -euo pipefail
py=$(command -v "${1:-/usr/bin/python3}")
cd "$(dirname "$0")/.."
scripts/setup.sh python
dir=build/python
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVARO_HDR_TESTS=OFF -DVARO_HDR_BENCH=OFF \
  -DVARO_HDR_PYTHON=ON -DPython3_EXECUTABLE="$py" \
  -DVARO_HDR_PYTHON_INSTALL_DIR="$("$py" -c 'import sysconfig; print(sysconfig.get_path("platlib"))')" \
  > "$dir.configure.log" 2>&1 || { cat "$dir.configure.log"; exit 1; }
ninja -C "$dir" -j "$(nproc)" varo_hdr_python > "$dir.build.log" 2>&1 || { tail -50 "$dir.build.log"; exit 1; }
cmake --install "$dir" --component python
cd / && "$py" -c 'import varo_hdr; print("varo_hdr", varo_hdr.__version__, "installed:", varo_hdr.__file__)'
