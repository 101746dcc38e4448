#!/usr/bin/env bash
# Plays for long and looks at every frame that comes out. Usage: soak.sh [HOURS [SECONDS]]
#   HOURS    of a playlist on the test clock, 10 if not given
#   SECONDS  in real time to a private sound server beside a busy core, 180 if not given
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/packages.sh build test
[ -f build/release/build.ninja ] || cmake --preset release >/dev/null
ninja -C build/release velorine_soak >/dev/null
build/release/tests/pulse/velorine_soak real "${2:-180}"
build/release/tests/pulse/velorine_soak clock "${1:-10}"
