#!/usr/bin/env bash
# Installs the Debian 12 packages Lorvane needs, and nothing when they are all present.
# Usage: scripts/install-deps.sh build|test
set -euo pipefail

build_packages=(
  cmake ninja-build g++ pkg-config
  qt6-base-dev libqt6opengl6-dev qt6-qpa-plugins libgl-dev libegl-dev libgl1-mesa-dri
  libpulse-dev libfftw3-dev libsndfile1-dev libxcb1-dev libxcb-shape0-dev libx11-xcb-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libwayland-dev wayland-protocols qt6-wayland qt6-base-private-dev
  dbus-x11 pulseaudio
)
# The desktop the tests run against: a virtual X server with a real window manager,
# a private session bus, a private sound server and the real MPRIS client.
test_packages=(
  xvfb xauth openbox x11-utils xdotool dbus pulseaudio-utils playerctl
  x11-xserver-utils xcompmgr
  sway grim weston xwayland
)

packages=("${build_packages[@]}")
[ "${1:-build}" = test ] && packages+=("${test_packages[@]}")

# One dpkg-query for all packages keeps the "everything is there" case quick.
installed=$(dpkg-query -W -f='${Package} ${Status}\n' "${packages[@]}" 2>/dev/null | awk '$4 == "installed" {print $1}' || true)
missing=()
for package in "${packages[@]}"; do
  grep -qx "$package" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

line="apt-get install -y --no-install-recommends ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
  sudo=()
elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
  sudo=(sudo)
else
  echo "Lorvane needs these Debian packages. Please run as root:" >&2
  echo "  apt-get update && $line" >&2
  exit 1
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
