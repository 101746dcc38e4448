#!/bin/bash
# Fetches real music out of Debian packages. Files that are there already stay.
#
#   scripts/real-music.sh FOLDER [NAME]...
#
# The names are brandenburg.ogg (44.1 kHz, stereo), paradroid.ogg (44.1 kHz, mono; a minute, out of a
# small package) and march.ogg (48 kHz, stereo; out of a large one). Without any, all of them.
set -euo pipefail

folder=${1:?usage: scripts/real-music.sh FOLDER [NAME]...}
shift
if [ $# = 0 ]; then set -- brandenburg.ogg paradroid.ogg march.ogg; fi
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

for name in "$@"; do
    case $name in
    brandenburg.ogg)
        fetch gamine-data \
            usr/share/games/gamine/sounds/BachJSBrandenburgConcertNo2inFMajorBWV1047mvmt1.ogg "$name"
        ;;
    paradroid.ogg)
        fetch freedroid-data usr/share/games/freedroid/sound/Paradroid.ogg "$name"
        ;;
    march.ogg)
        fetch singularity-music \
            "usr/share/games/singularity/music/lose/March Thee to Dis.ogg" "$name"
        ;;
    *)
        echo "real-music.sh: there is no music called $name" >&2
        exit 2
        ;;
    esac
done
