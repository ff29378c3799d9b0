#!/usr/bin/env bash
# The main job: converts a CinemaDNG clip (a folder of DNG frames) into one EXR file per frame with
# dngprocessor, or, without a clip, renders the synthetic demo clip that dngprocessor writes itself.
#
#   bash scripts/run.sh                         # demo clip
#   bash scripts/run.sh CLIP_FOLDER [flags]     # a real clip; EXR files in CLIP_FOLDER-exr/
#   OUT=/some/folder bash scripts/run.sh CLIP_FOLDER -t 2 -v
#
# Extra flags go to dngprocessor as they are (see dngprocessor --help).
set -euo pipefail
ROOT="$(cd "$(dirname "$0")/.." && pwd)"
cd "$ROOT"
bash scripts/install-deps.sh

echo "== Building (Release) into build/release"
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
if ! cmake --build build/release -j"$(nproc)" --target dngprocessor dngdemoclip >build/release/run-build.log 2>&1; then
    tail -n 60 build/release/run-build.log
    echo "== build failed (full log: build/release/run-build.log)"
    exit 1
fi
DNGPROCESSOR="$ROOT/build/release/dngprocessor"

if [ $# -eq 0 ] || [[ "$1" == -* ]]; then
    out="${OUT:-$ROOT/build/demo-exr}"
    echo "== dngprocessor --demo -o $out $*"
    set +e
    "$DNGPROCESSOR" --demo -o "$out" "$@"
    code=$?
    set -e
else
    clip="${1%/}"
    shift
    out="${OUT:-${clip}-exr}"
    echo "== dngprocessor --render $clip -o $out $*"
    set +e
    "$DNGPROCESSOR" --render "$clip" -o "$out" "$@"
    code=$?
    set -e
fi

count=$(find "$out" -maxdepth 1 -name '*.exr' 2>/dev/null | wc -l)
echo "== $count EXR files in $out"
exit "$code"
