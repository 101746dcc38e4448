#!/usr/bin/env bash
# Runs a command on a stage for Wine: its server kept up, a display, and a sound server that plays
# into nothing and whose monitor is recorded. Usage: wine-stage.sh FOLDER COMMAND [ARGUMENT...]
# The command finds the recording (raw, 16 bits, stereo, 44.1 kHz, growing) in VELORINE_CAPTURE.
set -euo pipefail
scripts=$(cd "$(dirname "$0")" && pwd)
rm -rf "$1"
mkdir -p "$1/runtime"
stage=$(cd "$1" && pwd)
shift

export WINEPREFIX="$stage/prefix" XDG_RUNTIME_DIR="$stage/runtime"
export VELORINE_WINE_ROOT="${VELORINE_WINE_ROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/velorine/wine-root}"
export VELORINE_CAPTURE="$stage/capture.raw"
export PULSE_SERVER="unix:$stage/pulse" DISPLAY
# Wine's stream is shallow: beside a busy neighbour it runs dry, with a hole in the recording.
export PULSE_LATENCY_MSEC="${PULSE_LATENCY_MSEC:-100}"

running=()
finish() {
    "$scripts/wine.sh" wineboot --end-session --force --kill >/dev/null 2>&1 || true
    kill "${running[@]}" 2>/dev/null || true
    wait 2>/dev/null || true
}
trap finish EXIT

until_there() { # what it is, test of it...
    local what=$1 tries=0
    shift
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || { echo "$what does not come up" >&2; tail -n 20 "$stage"/*.log >&2; exit 1; }
        sleep 0.1
    done
}

# What is recorded has to keep its pace beside everything else.
nice -n -11 pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --log-level=warning \
    -L "module-native-protocol-unix auth-anonymous=1 socket=$stage/pulse" \
    -L "module-null-sink sink_name=stage format=s16le rate=44100 channels=2" \
    >"$stage/pulse.log" 2>&1 &
running+=($!)
until_there "PulseAudio" pactl info
nice -n -11 parec --device=stage.monitor --format=s16le --rate=44100 --channels=2 --latency-msec=20 \
    >"$VELORINE_CAPTURE" 2>"$stage/parec.log" &
running+=($!)
until_there "The recording" test -s "$VELORINE_CAPTURE"

for number in $(seq 90 120); do
    [ -e "/tmp/.X11-unix/X$number" ] || break
done
DISPLAY=":$number"
Xvfb "$DISPLAY" -screen 0 1024x768x24 -nolisten tcp >"$stage/display.log" 2>&1 &
running+=($!)
until_there "The display" test -e "/tmp/.X11-unix/X$number"

"$scripts/wine.sh" wineboot --init >"$stage/wine.log" 2>&1
# A server that stays spares every test its start, and the wait for the last one's end.
"$scripts/wine.sh" cmd /c pause >/dev/null 2>&1 < <(sleep infinity) &
running+=($!)

nice -n -5 "$@"
