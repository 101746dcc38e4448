#!/bin/bash
# Fetches real music for the tests out of Debian packages: two files at 44.1 kHz (stereo and mono) and
# one at 48 kHz. Files that are there already stay.
#
#   scripts/real-music.sh FOLDER
set -euo pipefail

folder=${1:?usage: scripts/real-music.sh FOLDER}
mkdir -p "$folder"

# fetch PACKAGE FILE-IN-PACKAGE NAME
fetch() (
    target=$folder/$3
    if [ -s "$target" ]; then exit 0; fi
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    chmod 755 "$work" # apt drops its privileges and still has to read here
    if ! (cd "$work" && apt-get download "$1") >"$work/log" 2>&1; then
        cat "$work/log" >&2
        echo "real-music.sh: the package $1 could not be downloaded; does 'apt-get update' work?" >&2
        exit 1
    fi
    dpkg -x "$work/$1"_*.deb "$work/unpacked"
    cp "$work/unpacked/$2" "$target.part"
    mv "$target.part" "$target"
)

fetch gamine-data \
    usr/share/games/gamine/sounds/BachJSBrandenburgConcertNo2inFMajorBWV1047mvmt1.ogg brandenburg.ogg
fetch freedroid-data usr/share/games/freedroid/sound/Paradroid.ogg paradroid.ogg
fetch singularity-music \
    "usr/share/games/singularity/music/lose/March Thee to Dis.ogg" march.ogg
