#!/usr/bin/env bash
# Installs the Debian packages that a task needs, those that are missing. Usage: packages.sh TASK...
#   build    compiler, build tools, libraries, those that the tests are configured with too
#   test     what the tests need besides
#   windows  the cross compiler, and what 32-bit Wine is set up and heard with
#   bench    peers that the benchmarks measure against
#   plots    what the pictures in the documentation are drawn with
set -euo pipefail

build="g++ cmake ninja-build ccache pkg-config libsndfile1-dev libcli11-dev libtomlplusplus-dev
    libfftw3-dev libcairo2-dev libpulse-dev fonts-dejavu-core libgtest-dev libgmock-dev
    libbenchmark-dev"
test="clang clang-tidy clang-format libclang-rt-14-dev binutils python3 pulseaudio pulseaudio-utils"
windows="g++-mingw-w64-i686-posix googletest make xz-utils debootstrap mount pulseaudio
    pulseaudio-utils xvfb"
bench="time libsoxr-dev ffmpeg"
plots="gnuplot-nox fonts-dejavu-core"

wanted=""
for task in "$@"; do wanted+=" ${!task}"; done

missing=""
for package in $wanted; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
        missing+=" $package"
done
[ -z "$missing" ] && exit 0

sudo=""
if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null ||
        { echo "These packages are missing, and there is no sudo:$missing" >&2; exit 1; }
    sudo="sudo"
fi
echo "Installing:$missing" >&2
$sudo apt-get update -qq >&2
# shellcheck disable=SC2086
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing \
    >/dev/null
