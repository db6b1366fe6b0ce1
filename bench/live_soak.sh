#!/usr/bin/env bash
# The whole program live for MINUTES (default 60) on a private desktop, with its resident memory,
# open files and threads every minute and the growth at the end.
#
#   bench/live_soak.sh [MINUTES]      (after scripts/build.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
soak=${LORVANE_BUILD_DIR:-build}/bench/app/live_soak
[ -x "$soak" ] || { echo "build first: $soak is missing" >&2; exit 1; }
exec "$soak" "${1:-60}"
