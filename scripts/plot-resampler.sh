#!/bin/bash
# Draws the resampler's response into docs/resampler.png.
#
#   scripts/plot-resampler.sh [BUILD-DIRECTORY]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/release}
"$root/scripts/packages.sh" plots
cmake --build "$build" --target filter_response >/dev/null

data=$(mktemp)
trap 'rm -f "$data"' EXIT
"$build/bench/filter_response" >"$data"
gnuplot <<PLOT
set terminal pngcairo size 1000,520 font "DejaVu Sans,11"
set output "$root/docs/resampler.png"
set title "Resampler, 16 bits of accuracy: magnitude over frequency"
set xlabel "frequency, of the input's Nyquist frequency"
set ylabel "dB"
set yrange [-170:10]
set grid lc rgb "#dddddd"
set key top right
plot "$data" using 1:2 with lines lw 2 lc rgb "#8c949e" title "balance 0 (mellow)", \
     "$data" using 1:3 with lines lw 2 lc rgb "#0d66bf" title "balance 5 (default)", \
     "$data" using 1:4 with lines lw 2 lc rgb "#c0562a" title "balance 10 (sharp)"
PLOT
