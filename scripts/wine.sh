#!/usr/bin/env bash
# Runs a 32-bit Windows program in Wine. Usage: wine.sh PROGRAM [ARGUMENT...]
#   VELORINE_WINE_ROOT  the i386 root that holds Wine where the machine has none of its own
#   WINEPREFIX, DISPLAY, PULSE_SERVER  as Wine takes them
set -euo pipefail
export WINEPREFIX="${WINEPREFIX:-$(cd "$(dirname "$0")/.." && pwd)/build/wine-prefix}"
export WINEDEBUG="${WINEDEBUG:--all}" WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
root="${VELORINE_WINE_ROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/velorine/wine-root}"

if [ -e /usr/lib/i386-linux-gnu/wine/i386-unix/ntdll.so ]; then
    exec wine "$@"
fi
[ -e "$root/.complete" ] || { echo "No 32-bit Wine: run scripts/windows-wine.sh $root" >&2; exit 1; }
# Mounted in a name space of its own, so that nothing stays mounted, however the program ends.
export VELORINE_WINE_FOLDER="$PWD"
exec unshare --mount --propagation slave bash -c '
    root=$1 project=$2
    shift 2
    mkdir -p "$root$project" "$root$WINEPREFIX"
    for folder in /proc /dev /tmp /run "$project"; do mount --rbind "$folder" "$root$folder"; done
    exec chroot "$root" /bin/sh -c "cd \"\$VELORINE_WINE_FOLDER\" && exec wine \"\$@\"" wine "$@"
' bash "$root" "$(cd "$(dirname "$0")/.." && pwd -P)" "$@"
