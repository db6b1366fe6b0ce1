#!/usr/bin/env bash
# Installs the Debian 12 packages Lorvane needs, and nothing when they are all present.
# Usage: scripts/install-deps.sh build|test|bench
set -euo pipefail

build_packages=(
  cmake ninja-build g++ pkg-config
  qt6-base-dev libqt6opengl6-dev qt6-qpa-plugins libqt6svg6 libgl-dev libegl-dev libgl1-mesa-dri
  libpulse-dev libfftw3-dev libsndfile1-dev libsoxr-dev libxcb1-dev libxcb-shape0-dev libx11-xcb-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libwayland-dev wayland-protocols qt6-wayland qt6-base-private-dev
  dbus-x11 pulseaudio
)
# The desktop the tests run against: a virtual X server with a real window manager,
# a private session bus, a private sound server and the real MPRIS client; sox for the resampling
# comparison; the validators of the installed files; what builds and checks the .deb.
test_packages=(
  xvfb xauth openbox x11-utils xdotool dbus pulseaudio-utils playerctl sox
  x11-xserver-utils xcompmgr
  desktop-file-utils appstream lintian man-db dpkg-dev file libglib2.0-bin
  sway grim weston xwayland
  clang libclang-rt-14-dev
  strace
)

# The benchmarks also run cava, the peer the CPU figures are measured against.
bench_packages=(cava)

packages=("${build_packages[@]}")
case "${1:-build}" in
  build) ;;
  test) packages+=("${test_packages[@]}") ;;
  bench) packages+=("${test_packages[@]}" "${bench_packages[@]}") ;;
  *) echo "usage: $0 build|test|bench" >&2; exit 2 ;;
esac

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
