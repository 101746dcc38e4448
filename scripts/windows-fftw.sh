#!/usr/bin/env bash
# Cross-builds FFTW, single and double precision, for 32-bit Windows from Debian's source package.
# Usage: windows-fftw.sh PREFIX. What stands there already, built the same way, stays.
set -euo pipefail
prefix=$1

# Hosts call us with a stack that is only 4-byte aligned. The kernels are chosen at run time.
options=(--host=i686-w64-mingw32 --disable-shared --enable-static --disable-threads
    --disable-fortran --disable-doc --with-our-malloc --with-incoming-stack-boundary=2
    --enable-sse2 --enable-avx2 CC=i686-w64-mingw32-gcc-posix
    "CFLAGS=-O3 -fomit-frame-pointer -malign-double -fstrict-aliasing -fno-schedule-insns")

stamp="${options[*]}"
if [ -f "$prefix/.built" ] && [ "$(cat "$prefix/.built")" = "$stamp" ]; then
    exit 0
fi

sources=$(mktemp -d)
trap 'rm -rf "$sources"' EXIT
mkdir -p "$sources/parts" "$sources/lists/partial"
# The machine's own package sources, read as sources of source packages.
for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
    [ -f "$list" ] || continue
    sed -e 's/^Types:.*/Types: deb-src/' -e 's/^deb /deb-src /' "$list" >"$sources/parts/$(basename "$list")"
done
apt_options=(-o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$sources/parts"
    -o "Dir::State::Lists=$sources/lists" -o "APT::Sandbox::User=root" -o "Dir::Cache=$sources")

echo "Building FFTW for Windows" >&2
(cd "$sources" && apt-get "${apt_options[@]}" update -qq &&
    apt-get "${apt_options[@]}" source -qq --download-only fftw3 && tar xf fftw3_*.orig.tar.*) >&2
tree=$(echo "$sources"/fftw-*/)
mkdir -p "$prefix"
for precision in --enable-single ""; do
    mkdir -p "$sources/build$precision"
    (cd "$sources/build$precision" &&
        "$tree/configure" --prefix="$prefix" ${precision:+"$precision"} "${options[@]}" &&
        make -j"$(nproc)" && make install) >"$prefix/build$precision.log" 2>&1 ||
        { tail -n 40 "$prefix/build$precision.log" >&2; exit 1; }
done
echo "$stamp" >"$prefix/.built"
