#!/bin/bash
# CPU time of `velorine render` with everything on - the processor with the factory tuning, 44.1 to
# 48 kHz, 16 bits with dither - against ffmpeg doing the same kind of work on the same ten minutes in
# one thread: an equaliser of 23 nodes, a compressor of seven bands, soxr, dither. Medians of three,
# in turns.
#
#   bench/render-peer.sh [BUILD-DIRECTORY]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
tools=$build/bench
velorine=$build/player/velorine

"$root/scripts/packages.sh" bench
cmake --build "$build" --target velorine run_cost make_noise >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export VELORINE_CONFIG_DIR=$work/settings

"$tools/make_noise" "$work/song.wav" 600

gains=(2 -2 1.5 -1)
entries=""
i=0
for hz in 20 35 50 60 75 100 135 180 250 375 500 750 1000 1500 2000 3000 4000 6000 8000 12000 15000 \
    18000 20000; do
    entries+="entry($hz,${gains[$((i % 4))]});"
    i=$((i + 1))
done
equaliser="firequalizer=gain_entry='${entries%;}':delay=0.02"
compressor="mcompand='0.005,0.1 6 -47/-40,-34/-34,-17/-33 65 | 0.003,0.05 6 -47/-40,-34/-34,-17/-33 150"
compressor+=" | 0.003,0.05 6 -47/-40,-34/-34,-17/-33 230 | 0.000625,0.0125 6 -47/-40,-34/-34,-15/-33 1200"
compressor+=" | 0.0001,0.025 6 -38/-31,-28/-28,-0/-25 8000 | 0,0.025 6 -38/-31,-28/-28,-0/-25 15000"
compressor+=" | 0,0.025 6 -38/-31,-28/-28,-0/-25 22000'"
resampler="aresample=48000:resampler=soxr:precision=28:osf=s16:dither_method=triangular"

theirs() {
    "$tools/run_cost" 1 ffmpeg -v error -y -nostdin -threads 1 -filter_threads 1 \
        -filter_complex_threads 1 -i "$work/song.wav" -af "$equaliser,$compressor,$resampler" \
        -c:a pcm_s16le "$work/peer.wav"
}
ours() {
    "$tools/run_cost" 1 "$velorine" render "$work/song.wav" -o "$work/out.wav" \
        --set Resample/enable=1 --set Resample/srate=48000 --set Output/bits=16
}

for _ in 1 2 3; do
    theirs >>"$work/theirs"
    ours >>"$work/ours"
done
read -r peer _ < <(sort -n "$work/theirs" | sed -n 2p)
read -r render peak < <(sort -n "$work/ours" | sed -n 2p)

awk -v peer="$peer" -v render="$render" -v peak="$peak" 'BEGIN {
    printf "ffmpeg   %8.1f ms CPU\nvelorine %8.1f ms CPU\n", peer, render
    printf "ratio    1 / %.2f (goal: at most one sixth)\n", peer / render
    printf "memory   %8.1f MiB at its peak (goal: below 32)\n", peak / 1024
}'
