#!/usr/bin/env bash
# Speed of the whole dngprocessor command on a 4096 x 2160, 12-bit clip of 20 frames read from the
# page cache, with 1 and with 2 worker processes: the plain conversion (load, locate rows, linearise)
# and --render (plus debayer and EXR writing).
#
#   bash bench/bench_dngprocessor.sh            # builds Release into build/release first
#   BUILD_DIR=build-x RUNS=5 bash bench/bench_dngprocessor.sh
#
# Every configuration runs RUNS times (default 3); the best frame rate is reported, as the machine
# may be shared. Targets: 2 workers at least 1.8 x one worker; the plain run at least 30 frames per
# second per worker.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD_DIR="${BUILD_DIR:-build/release}"
case "$BUILD_DIR" in /*) ;; *) BUILD_DIR="$ROOT/$BUILD_DIR" ;; esac
RUNS="${RUNS:-3}"
WORK="${BENCH_DIR:-/tmp/cinedng-bench-dngprocessor}"
CLIP="$WORK/clip_4096x2160_12bit"
OUT="$WORK/exr"

if [[ "${SKIP_BUILD:-0}" != 1 ]]; then
    cmake -S "$ROOT" -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$BUILD_DIR" -j2 --target dngprocessor dngdemoclip >/dev/null
fi
DNGPROCESSOR="$BUILD_DIR/dngprocessor"
DEMOCLIP="$BUILD_DIR/dngdemoclip"

if [[ "$(ls "$CLIP"/*.dng 2>/dev/null | wc -l)" != 20 ]]; then
    rm -rf "$CLIP"
    "$DEMOCLIP" "$CLIP" --width 4096 --height 2160 --frames 20 --bits 12 >/dev/null
fi
mkdir -p "$OUT"
# Into the page cache.
cat "$CLIP"/*.dng >/dev/null
cat "$CLIP"/*.dng >/dev/null

# "Frame rate (fps)" of one run of dngprocessor with the given flags.
fps_of() {
    "$DNGPROCESSOR" "$CLIP" -o "$OUT" "$@" 2>/dev/null | sed -n 's/^Frame rate (fps)  *//p'
}

frame_mb="$(du -b "$CLIP"/*000000.dng | awk '{ printf "%.1f", $1 / 1e6 }')"
echo "dngprocessor on 20 frames of 4096 x 2160, 12-bit packed (${frame_mb} MB a frame), best of $RUNS runs"
# The configurations take turns, so that a passing load on the machine hits them alike.
declare -A FPS
for key in plain1 plain2 render1 render2; do FPS[$key]=0; done
for _ in $(seq "$RUNS"); do
    for workers in 1 2; do
        fps="$(fps_of -t "$workers")"
        FPS[plain$workers]="$(awk -v a="${FPS[plain$workers]}" -v b="$fps" 'BEGIN { print (b > a ? b : a) }')"
        fps="$(fps_of -t "$workers" --render)"
        FPS[render$workers]="$(awk -v a="${FPS[render$workers]}" -v b="$fps" 'BEGIN { print (b > a ? b : a) }')"
    done
done
printf '%-10s %9s %16s %16s\n' "run" "workers" "frames/s" "per worker"
for mode in plain render; do
    for workers in 1 2; do
        fps="${FPS[$mode$workers]}"
        printf '%-10s %9d %16.1f %16.1f\n' "$mode" "$workers" "$fps" "$(awk -v f="$fps" -v w="$workers" 'BEGIN { print f / w }')"
    done
done
for mode in plain render; do
    awk -v a="${FPS[${mode}1]}" -v b="${FPS[${mode}2]}" -v m="$mode" \
        'BEGIN { printf "%-10s 2 workers / 1 worker = %.2fx (target >= 1.8x)\n", m, (a > 0 ? b / a : 0) }'
done
awk -v a="${FPS[plain1]}" 'BEGIN { printf "plain      per worker = %.1f frames/s (target >= 30)\n", a }'
rm -rf "$OUT"
