#!/usr/bin/env bash
# Builds Lorvane and runs the whole test suite (installing its Debian packages first when missing).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh test
scripts/build.sh
ctest --test-dir "${LORVANE_BUILD_DIR:-build}" --output-on-failure --timeout 300
