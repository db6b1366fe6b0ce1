#!/usr/bin/env bash
# CPU cost of Lorvane's capture and analysis next to cava's, on the same private PulseAudio server and
# the same monitor, while a music-like signal plays. Each client runs alone for SECONDS (default 60);
# the server's share is measured during each phase as well, and once with no capture at all.
# CPU is utime + stime from /proc/<pid>/stat, as a percentage of one core.
#
#   bench/capture_cpu.sh [SECONDS [FRAGMENT_MS]]   (after scripts/build.sh; needs pulseaudio and cava)
# FRAGMENT_MS tries another capture fragment than the program's own.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
fragment=(${2:-})
build=${LORVANE_BUILD_DIR:-build}
probe=$build/bench/capture_probe
[ -x "$probe" ] || { echo "build first: $probe is missing" >&2; exit 1; }
command -v cava >/dev/null || { echo "cava is not installed" >&2; exit 1; }

dir=$(mktemp -d /tmp/lorvane-cpu-XXXXXX)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$dir"
}
trap cleanup EXIT

# The same private server as the tests' harness: its own home and runtime directory, a null sink at
# 48000 Hz float32 as default, no sound card. Shared memory stays on, as on a desktop.
mkdir -p "$dir/home" "$dir/runtime"
chmod 700 "$dir/runtime"
cat > "$dir/server.pa" <<EOF
load-module module-null-sink sink_name=lorvane_null rate=48000 format=float32le channels=2 channel_map=front-left,front-right
load-module module-native-protocol-unix auth-anonymous=1 socket=$dir/native
set-default-sink lorvane_null
EOF
printf 'autospawn = no\n' > "$dir/client.conf"
head -c 256 /dev/urandom > "$dir/cookie"
HOME=$dir/home XDG_RUNTIME_DIR=$dir/runtime PULSE_RUNTIME_PATH=$dir/runtime \
  pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --realtime=no --high-priority=no \
  --no-cpu-limit=yes --log-level=error -F "$dir/server.pa" 2>"$dir/server.log" &
server=$!
pids+=("$server")
export PULSE_SERVER=unix:$dir/native PULSE_COOKIE=$dir/cookie PULSE_CLIENTCONFIG=$dir/client.conf
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.05; done
pactl info >/dev/null

"$probe" play $((seconds * 3 + 60)) &
pids+=("$!")
sleep 3

ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
hz=$(getconf CLK_TCK)

# measure SECONDS PID... : prints each process's CPU as a percentage of one core
measure() {
  local duration=$1; shift
  local before=() after=()
  for pid in "$@"; do before+=("$(ticks "$pid")"); done
  sleep "$duration"
  for pid in "$@"; do after+=("$(ticks "$pid")"); done
  local i
  for i in "${!before[@]}"; do
    awk -v a="${after[$i]}" -v b="${before[$i]}" -v hz="$hz" -v s="$duration" \
      'BEGIN { printf "%.2f ", (a - b) / hz / s * 100 }'
  done
  echo
}

echo "== no capture, music playing (${seconds}s)"
read -r idle_server < <(measure "$seconds" "$server")

echo "== cava, framerate 30, pulse on lorvane_null.monitor (${seconds}s)"
cat > "$dir/cava.conf" <<'EOF'
[general]
framerate = 30
[input]
method = pulse
source = lorvane_null.monitor
[output]
method = raw
raw_target = /dev/null
data_format = binary
EOF
cava -p "$dir/cava.conf" </dev/null >/dev/null 2>"$dir/cava.log" &
cava=$!
pids+=("$cava")
sleep 3
read -r cava_client cava_server < <(measure "$seconds" "$cava" "$server")
kill "$cava"; wait "$cava" 2>/dev/null || true

echo "== Lorvane capture and analysis on the default sink's monitor (${seconds}s)"
"$probe" capture $((seconds + 10)) "${fragment[@]}" >"$dir/probe.log" &
lorvane=$!
pids+=("$lorvane")
sleep 3
read -r lorvane_client lorvane_server < <(measure "$seconds" "$lorvane" "$server")
kill "$lorvane" 2>/dev/null || true

printf '\n%-28s %8s %8s %8s\n' "" client server total
printf '%-28s %8s %8s %8s\n' "no capture" - "$idle_server" "$idle_server"
printf '%-28s %8s %8s %8s\n' "cava" "$cava_client" "$cava_server" \
  "$(awk -v a="$cava_client" -v b="$cava_server" 'BEGIN { printf "%.2f", a + b }')"
printf '%-28s %8s %8s %8s\n' "Lorvane" "$lorvane_client" "$lorvane_server" \
  "$(awk -v a="$lorvane_client" -v b="$lorvane_server" 'BEGIN { printf "%.2f", a + b }')"
awk -v lc="$lorvane_client" -v ls="$lorvane_server" -v cc="$cava_client" -v cs="$cava_server" 'BEGIN {
  printf "\nLorvane / cava: client %.2f, client + server %.2f (percent of one core)\n",
    (cc > 0 ? lc / cc : 0), (cc + cs > 0 ? (lc + ls) / (cc + cs) : 0) }'
