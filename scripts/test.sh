#!/usr/bin/env bash
# Builds and tests everything. Usage: test.sh [STEP...]
# Steps: style release asan tsan clang fuzz. Without one: all of them, in this order.
# Step windows, by itself: the 32-bit Windows build, its tests in Wine.
set -uo pipefail
cd "$(dirname "$0")/.."

steps=("$@")
[ ${#steps[@]} -gt 0 ] || steps=(style release asan tsan clang fuzz)
jobs=$(nproc)
logs=build/logs
mkdir -p "$logs"
failed=()
times=()

scripts/packages.sh build test || exit 1

build() { # preset [target]
    [ -f "build/$1/build.ninja" ] || cmake --preset "$1" >"$logs/$1-configure.log" 2>&1 ||
        { cat "$logs/$1-configure.log"; return 1; }
    ninja -C "build/$1" ${2:+"$2"} >"$logs/$1-build.log" 2>&1 || { tail -n 60 "$logs/$1-build.log"; return 1; }
}

tests() { # preset
    build "$1" && ctest --test-dir "build/$1" -j "$jobs" --output-on-failure >"$logs/$1-ctest.log" 2>&1
    local result=$?
    [ $result = 0 ] || { [ -f "$logs/$1-ctest.log" ] && tail -n 150 "$logs/$1-ctest.log"; }
    return $result
}

step_style() {
    cmake --preset debug >"$logs/debug-configure.log" 2>&1 && scripts/check-style.sh build/debug
}
step_release() { tests release; }
step_asan() {
    ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1 \
        LSAN_OPTIONS="print_suppressions=0:suppressions=$PWD/tests/lsan.supp" tests asan
}
step_tsan() {
    TSAN_OPTIONS="halt_on_error=1:suppressions=$PWD/tests/tsan.supp" tests tsan
}
step_clang() { build clang; }
step_fuzz() {
    build fuzz fuzz/all || return 1
    local target corpus
    for target in build/fuzz/fuzz/*_fuzz; do
        [ -x "$target" ] || continue
        corpus="build/fuzz/corpus-$(basename "$target")"
        mkdir -p "$corpus"
        "$target" -max_total_time=30 -timeout=20 -rss_limit_mb=4096 -print_final_stats=0 \
            "$corpus" "fuzz/corpus/$(basename "$target")" >"$logs/$(basename "$target").log" 2>&1 ||
            { tail -n 60 "$logs/$(basename "$target").log"; return 1; }
        grep -E 'DONE' "$logs/$(basename "$target").log" | tail -n 1
    done
}

# Everything under Wine gets a server, a display and a sound system of its own, whose monitor is
# recorded while the tests run.
step_windows() {
    local cache="${XDG_CACHE_HOME:-$HOME/.cache}/velorine" stage=$PWD/build/win32-stage
    scripts/packages.sh windows && scripts/windows-fftw.sh "$cache/i686-w64-mingw32" &&
        scripts/windows-wine.sh "$cache/wine-root" || return 1
    build release velorine_agreement_tests && build/release/tests/agreement/velorine_agreement_tests \
        >"$logs/rendition.log" || return 1
    build win32 || return 1
    scripts/wine-stage.sh "$stage" ctest --test-dir build/win32 -j "$((jobs + 1))" \
        --output-on-failure >"$logs/windows-ctest.log" 2>&1
    local result=$?
    [ $result = 0 ] || tail -n 150 "$logs/windows-ctest.log"
    return $result
}

for step in "${steps[@]}"; do
    printf '== %s\n' "$step"
    begin=$SECONDS
    "step_$step" || failed+=("$step")
    times+=("$(printf '%-8s %4d s' "$step" $((SECONDS - begin)))")
done

printf '\n== times\n'
printf '%s\n' "${times[@]}"
for step in "${steps[@]}"; do
    [ -f "$logs/$step-ctest.log" ] || continue
    printf '\n== tests: %s\n' "$step"
    grep -E 'tests passed|tests failed|Total Test time|The following tests FAILED|\(Failed\)|\(Timeout\)' \
        "$logs/$step-ctest.log"
done
if [ ${#failed[@]} -gt 0 ]; then
    printf '\nFAILED: %s\n' "${failed[*]}"
    exit 1
fi
