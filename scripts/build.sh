#!/usr/bin/env bash
# Configures and builds into build/ (or build-sanitize/ with --sanitize).
# Further arguments name the targets to build (default: everything).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
dir="$here/build"
extra=()
if [ "${1:-}" = "--sanitize" ]; then
  dir="$here/build-sanitize"
  extra=(-DISODATA_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo)
  shift
fi
targets=()
for t in "$@"; do targets+=(--target "$t"); done
cmake -S "$here" -B "$dir" -DCMAKE_BUILD_TYPE=Release "${extra[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)" "${targets[@]}"
