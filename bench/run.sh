#!/usr/bin/env bash
# Times isodata on enlarged copies of the sample scene against the I/O floor
# (reading every band once and writing one Byte band) and prints a table.
#
#   bench/run.sh [size ...]        default sizes: 2000 8000 (pixels a side)
#
# BUILD_DIR selects the build to time (default: build/, built with
# scripts/build.sh when its binaries are missing). Workloads are cached in
# $BUILD_DIR/bench/workloads/ and reused by later runs.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$here/build}
scene="$here/data/L7_ETMs.tif"
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(2000 8000)

# Fixed parameters, so that a change of the CLI's defaults does not change
# what is measured.
params=(-classes 8 -initial 4 -min-size 20 -merge-pairs 2 -iter 10 -std 10 -merge-dist 20)

for tool in gdal_translate /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "bench: $tool is missing (run scripts/setup.sh)" >&2; exit 1; }
done
[ -s "$scene" ] || "$here/scripts/fetch-sample.sh"
if [ ! -x "$build/bin/isodata" ] || [ ! -x "$build/bin/isodata_io_floor" ]; then
  if [ -n "${BUILD_DIR:-}" ]; then
    echo "bench: $build/bin lacks isodata or isodata_io_floor" >&2
    exit 1
  fi
  "$here/scripts/build.sh" isodata isodata_plugin isodata_io_floor
fi

work="$build/bench/workloads"
mkdir -p "$work"

# "h:mm:ss" or "m:ss.ss" as printed by time -v, in seconds.
seconds() { awk -F: '{ s = 0; for (i = 1; i <= NF; i++) s = s * 60 + $i; printf "%.2f", s }' <<<"$1"; }
field() { sed -n "s/^[[:space:]]*$1: //p" "$2"; }

# Runs a command under time -v; sets wall, cpu and peak_mb.
measure() {
  local report="$1"
  shift
  if ! /usr/bin/time -v -o "$report" "$@"; then
    echo "bench: failed: $*" >&2
    exit 1
  fi
  wall=$(seconds "$(field 'Elapsed (wall clock) time (h:mm:ss or m:ss)' "$report")")
  cpu=$(awk -v u="$(field 'User time (seconds)' "$report")" -v s="$(field 'System time (seconds)' "$report")" \
    'BEGIN { printf "%.2f", u + s }')
  peak_mb=$(awk -v k="$(field 'Maximum resident set size (kbytes)' "$report")" 'BEGIN { printf "%.0f", k / 1024 }')
}

rows=()
for size in "${sizes[@]}"; do
  input="$work/L7_${size}.tif"
  if [ ! -s "$input" ]; then
    echo "bench: making the ${size} x ${size} workload"
    gdal_translate -q -of GTiff -co COMPRESS=NONE -outsize "$size" "$size" -r bilinear "$scene" "$input.part.tif"
    mv "$input.part.tif" "$input"
  fi
  # Both timings start from a warm page cache.
  cat "$input" >/dev/null

  echo "bench: ${size} x ${size}: isodata"
  measure "$work/time_run_$size.txt" "$build/bin/isodata" -q -overwrite "${params[@]}" "$input" "$work/classes_$size"
  run_wall=$wall run_cpu=$cpu run_peak=$peak_mb

  echo "bench: ${size} x ${size}: I/O floor"
  rm -f "$work/floor_$size" "$work/floor_$size.hdr"
  measure "$work/time_floor_$size.txt" "$build/bin/isodata_io_floor" "$input" "$work/floor_$size"
  floor_wall=$wall
  rm -f "$work/floor_$size" "$work/floor_$size.hdr" "$work/floor_$size.aux.xml"

  ratio=$(awk -v r="$run_wall" -v f="$floor_wall" 'BEGIN { if (f > 0) printf "%.1f", r / f; else print "-" }')
  rows+=("$(printf '%-12s %10s %10s %9s %10s %10s' "${size}x${size}" "$run_wall" "$run_cpu" "$run_peak" \
    "$floor_wall" "$ratio")")
done

echo
printf '%-12s %10s %10s %9s %10s %10s\n' workload "run wall s" "run CPU s" "peak MB" "floor wall" "run/floor"
printf '%s\n' "${rows[@]}"
