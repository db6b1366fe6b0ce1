#!/usr/bin/env bash
# Configures and builds Lorvane into build/ (or $LORVANE_BUILD_DIR).
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${LORVANE_BUILD_DIR:-build}
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLORVANE_WERROR=ON "$@" >/dev/null
fi
cmake --build "$dir" --parallel "$(nproc)"
