#!/usr/bin/env bash
# Builds Lorvane and launches it (installing its Debian packages first when missing).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "Lorvane needs a graphical desktop session: no DISPLAY or WAYLAND_DISPLAY is set." >&2
  exit 1
fi
scripts/install-deps.sh build
scripts/build.sh
exec build/src/app/lorvane
