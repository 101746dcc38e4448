#!/bin/bash
# CPU time and memory of `velorine render` on ten minutes of 44.1 kHz 16-bit stereo, against what
# cannot be saved: copying the file, and decoding it. Median of five.
#
#   bench/render-cpu.sh [BUILD-DIRECTORY]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
tools=$build/bench
velorine=$build/player/velorine
runs=5

cmake --build "$build" --target velorine run_cost decode_file make_noise >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export VELORINE_CONFIG_DIR=$work/settings

"$tools/make_noise" "$work/song.wav" 600
cost() { "$tools/run_cost" "$runs" "$@"; }

read -r copy _ < <(cost sh -c "exec cat '$work/song.wav' > '$work/copy.wav'")
read -r decode _ < <(cost "$tools/decode_file" "$work/song.wav")
read -r render peak < <(cost "$velorine" render "$work/song.wav" -o "$work/out.wav" \
    --set Output/bits=1 --set Eq/enable=0)
cmp "$work/song.wav" "$work/out.wav"

awk -v copy="$copy" -v decode="$decode" -v render="$render" -v peak="$peak" 'BEGIN {
    printf "copy    %8.1f ms CPU\ndecode  %8.1f ms CPU\nrender  %8.1f ms CPU\n", copy, decode, render
    printf "ratio   %8.2f (goal: at most 3)\n", render / (copy + decode)
    printf "memory  %8.1f MiB at its peak (goal: below 32)\n", peak / 1024
}'
