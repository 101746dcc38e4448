#!/bin/bash
# From a fresh clone on a bare Debian 12 to music: installs what is missing, builds, and plays.
#
#   scripts/play.sh FILE...   plays the files; options of 'velorine play' may stand among them
#   scripts/play.sh           plays a minute of real music out of a small Debian package, and leaves it
#                             rendered to WAV too
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/release
velorine=$build/player/velorine

say() { echo "play.sh: $*" >&2; }

build_program() {
    say "building in $build"
    cmake -S "$root" --preset release >"$root/build/configure.log" 2>&1 ||
        { cat "$root/build/configure.log" >&2; exit 1; }
    cmake --build "$build" --target velorine >&2
}

mkdir -p "$root/build"
"$root/scripts/packages.sh" build
build_program

if [ $# -gt 0 ]; then exec "$velorine" play "$@"; fi

music=$root/build/real-music
song=$music/paradroid.ogg
wav=$root/build/paradroid.wav
"$root/scripts/real-music.sh" "$music" paradroid.ogg
"$velorine" render "$song" -o "$wav" --set Output/bits=16
say "rendered to $wav"

device=$("$velorine" devices | sed -n '1s/\t.*//p')
if [ "$device" = None ]; then
    say "playing $song in real time on the null target: there is no sound device"
    exec "$velorine" play --null "$song"
fi
say "playing $song on $device"
exec "$velorine" play "$song"
