#!/usr/bin/env bash
# Sets up 32-bit Wine: from the distribution where it installs, else in an i386 root of its own.
# Usage: windows-wine.sh ROOT. Prints nothing; scripts/wine.sh finds what this made.
set -euo pipefail
root=$1

command -v wine >/dev/null && [ -e /usr/lib/i386-linux-gnu/wine/i386-unix/ntdll.so ] && exit 0
[ -e "$root/.complete" ] && exit 0

echo "Setting up 32-bit Wine" >&2
dpkg --add-architecture i386
if apt-get update -qq >&2 &&
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        wine wine32:i386 libpulse0:i386 >/dev/null; then
    exit 0
fi
# A mirror may hold i386 packages that don't match this machine's own, so Wine gets its own root.
dpkg --remove-architecture i386 || true
apt-get update -qq >&2 || true
rm -rf --one-file-system "$root"
mkdir -p "$root"
mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | grep -v security | head -n 1)
debootstrap --arch=i386 --variant=minbase --include=wine32,wine,libpulse0,fonts-dejavu-core \
    bookworm "$root" "$mirror" >"$root.log" 2>&1 || { tail -n 30 "$root.log" >&2; exit 1; }
touch "$root/.complete"
