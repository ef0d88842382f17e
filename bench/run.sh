#!/usr/bin/env bash
# Times isodata on enlarged copies of the sample scene beside the read-all
# floor (one multi-band read of every band, one Byte band written) and, when
# GRASS is installed, GRASS's i.cluster + i.maxlik with 10 classes on the
# same files; prints one table of medians, then how one run's stages split
# their wall time with one thread and with every core.
#
#   bench/run.sh [size ...]      default sizes: 2000 8000 16000 (pixels a side)
#   BENCH_LARGE=1 bench/run.sh   adds 32000 to the default sizes (6 GB file)
#   BENCH_REPEATS=5 bench/run.sh runs of each tool per size (default 3)
#
# BUILD_DIR selects the build to time (default: build/, built with
# scripts/build.sh when its binaries are missing). Workloads, GRASS locations
# and the last run's time -v reports are kept in $BUILD_DIR/bench/workloads/.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$here/build}
scene="$here/data/L7_ETMs.tif"
repeats=${BENCH_REPEATS:-3}
sizes=("$@")
if [ ${#sizes[@]} -eq 0 ]; then
  sizes=(2000 8000 16000)
  [ -z "${BENCH_LARGE:-}" ] || sizes+=(32000)
fi

# Fixed parameters, so that a change of the CLI's defaults does not change
# what is measured.
params=(-classes 8 -initial 4 -min-size 20 -merge-pairs 2 -iter 10 -std 10 -merge-dist 20)
grass_classes=10

for tool in gdal_translate /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "bench: $tool is missing (run scripts/setup.sh)" >&2; exit 1; }
done
grass=$(command -v grass || true)
[ -n "$grass" ] || echo "bench: GRASS is not installed (apt-get install grass-core); its columns stay empty"
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
median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "-" }'; }

# Runs a command under time -v, quietly; appends wall, CPU and peak MB to the
# arrays named <prefix>_wall, <prefix>_cpu and <prefix>_peak.
measure() {
  local prefix=$1 report=$2
  shift 2
  if ! /usr/bin/time -v -o "$report" "$@" >"$report.out" 2>&1; then
    echo "bench: failed: $* (see $report.out)" >&2
    exit 1
  fi
  local wall cpu peak
  wall=$(seconds "$(field 'Elapsed (wall clock) time (h:mm:ss or m:ss)' "$report")")
  cpu=$(awk -v u="$(field 'User time (seconds)' "$report")" -v s="$(field 'System time (seconds)' "$report")" \
    'BEGIN { printf "%.2f", u + s }')
  peak=$(awk -v k="$(field 'Maximum resident set size (kbytes)' "$report")" 'BEGIN { printf "%.0f", k / 1024 }')
  eval "${prefix}_wall+=($wall) ${prefix}_cpu+=($cpu) ${prefix}_peak+=($peak)"
}

# A GRASS location over the workload, its bands imported into GRASS's own
# raster format (as GRASS users work) and grouped; made once per workload,
# so the import is not timed.
grass_location() {
  local input=$1 location=$2
  [ -d "$location/PERMANENT/group/g" ] && return
  rm -rf "$location"
  "$grass" -c "$input" -e "$location" >/dev/null 2>&1
  "$grass" "$location/PERMANENT" --exec sh -c \
    "r.in.gdal input='$input' output=b --quiet && g.region raster=b.1 &&
     i.group group=g subgroup=g input=\$(g.list type=raster pattern='b.*' separator=comma) --quiet" >/dev/null 2>&1
}

# Wall seconds of each stage of one run, from its progress lines: a stage
# lasts from its first line to the next stage's first line (the first from
# the start, so it includes starting up), and the stages of the iterations
# are summed over them. Prints "<seconds>|<stage>" in the order the stages
# began.
stage_times() {
  local since=$EPOCHREALTIME stage="" line now
  "$@" 2>&1 >/dev/null | sed -u 's/^progress [0-9.]* //; s/^iteration [0-9]*: //' | {
    while IFS= read -r line; do
      [ "$line" = "$stage" ] && continue
      now=$EPOCHREALTIME
      [ -z "$stage" ] || awk -v a="$since" -v b="$now" -v s="$stage" 'BEGIN { printf "%.3f|%s\n", b - a, s }'
      stage=$line since=$now
    done
    now=$EPOCHREALTIME
    [ -z "$stage" ] || awk -v a="$since" -v b="$now" -v s="$stage" 'BEGIN { printf "%.3f|%s\n", b - a, s }'
  } | awk -F'|' '!($2 in t) { order[++n] = $2 } { t[$2] += $1 } END { for (i = 1; i <= n; i++) printf "%.3f|%s\n", t[order[i]], order[i] }'
}

rows=()
stage_tables=()
for size in "${sizes[@]}"; do
  input="$work/L7_${size}.tif"
  if [ ! -s "$input" ]; then
    echo "bench: making the ${size} x ${size} workload"
    gdal_translate -q -of GTiff -co COMPRESS=NONE -outsize "$size" "$size" -r bilinear "$scene" "$input.part.tif"
    mv "$input.part.tif" "$input"
  fi
  location="$work/grass_${size}"
  [ -z "$grass" ] || grass_location "$input" "$location"
  # Every timing starts from a warm page cache.
  cat "$input" >/dev/null

  run_wall=() run_cpu=() run_peak=() floor_wall=() floor_cpu=() floor_peak=()
  one_wall=() one_cpu=() one_peak=() mem_wall=() mem_cpu=() mem_peak=()
  grass_wall=() grass_cpu=() grass_peak=()
  for ((r = 1; r <= repeats; r++)); do
    echo "bench: ${size} x ${size}, round $r of $repeats"
    # One thread with the working copy on disk (the plug-in's own path), one
    # thread with the default memory budget, and every core with it.
    measure one "$work/time_one_$size.txt" \
      "$build/bin/isodata" -q -overwrite -threads 1 -mem 0 "${params[@]}" "$input" "$work/classes_$size"
    measure mem "$work/time_mem_$size.txt" \
      "$build/bin/isodata" -q -overwrite -threads 1 "${params[@]}" "$input" "$work/classes_$size"
    measure run "$work/time_run_$size.txt" \
      "$build/bin/isodata" -q -overwrite "${params[@]}" "$input" "$work/classes_$size"
    rm -f "$work/floor_$size" "$work/floor_$size.hdr" "$work/floor_$size.aux.xml"
    measure floor "$work/time_floor_$size.txt" "$build/bin/isodata_io_floor" "$input" "$work/floor_$size"
    rm -f "$work/floor_$size" "$work/floor_$size.hdr" "$work/floor_$size.aux.xml"
    if [ -n "$grass" ]; then
      measure grass "$work/time_grass_$size.txt" "$grass" "$location/PERMANENT" --exec sh -c \
        "i.cluster group=g subgroup=g signaturefile=sig classes=$grass_classes --quiet --overwrite &&
         i.maxlik group=g subgroup=g signaturefile=sig output=classes --quiet --overwrite"
    fi
  done

  # One more run each, untimed, for how its stages split: one thread and
  # every core, both with the default memory budget.
  stage_times "$build/bin/isodata" -overwrite -progress-format machine -threads 1 "${params[@]}" "$input" \
    "$work/classes_$size" >"$work/stages_one_$size.txt"
  stage_times "$build/bin/isodata" -overwrite -progress-format machine "${params[@]}" "$input" \
    "$work/classes_$size" >"$work/stages_all_$size.txt"
  stage_tables+=("$(awk -F'|' -v size="${size}x${size}" '
      NR == FNR { one[$2] = $1; next }
      { order[++n] = $2; all[$2] = $1; s1 += one[$2]; sa += $1 }
      END {
        printf "%s          | 1 thread | all cores | all/1\n", size
        for (i = 1; i <= n; i++) {
          k = order[i]
          printf "  %-40s | %8.3f | %9.3f | %5s\n", k, one[k], all[k], (one[k] > 0 ? sprintf("%.2f", all[k] / one[k]) : "-")
        }
        printf "  %-40s | %8.3f | %9.3f | %5.2f\n", "whole run", s1, sa, (s1 > 0 ? sa / s1 : 0)
      }' "$work/stages_one_$size.txt" "$work/stages_all_$size.txt")")

  rw=$(median "${run_wall[@]}") fw=$(median "${floor_wall[@]}")
  gw=- gp=- speedup=-
  if [ -n "$grass" ]; then
    gw=$(median "${grass_wall[@]}") gp=$(median "${grass_peak[@]}") speedup=$(ratio "$gw" "$rw")
  fi
  ow=$(median "${one_wall[@]}") mw=$(median "${mem_wall[@]}")
  rows+=("$(printf '| %-11s | %7s %4s | %7s %5s | %7s %5s | %6s | %6s | %6s | %9s | %7s %5s | %7s |' "${size}x${size}" \
    "$ow" "$(median "${one_peak[@]}")" "$mw" "$(median "${mem_peak[@]}")" "$rw" "$(median "${run_peak[@]}")" \
    "$(ratio "$rw" "$ow")" "$(ratio "$rw" "$mw")" "$fw" "$(ratio "$rw" "$fw")" "$gw" "$gp" "$speedup")")
done

echo
echo "$(nproc) cores, $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1); $(gdalinfo --version)"
echo "medians of $repeats alternating runs; times in seconds, memory as peak resident MB"
echo
printf '| %-11s | %12s | %13s | %13s | %6s | %6s | %6s | %9s | %13s | %7s |\n' workload "1 thr, disk" \
  "1 thr, memory" "all cores" "all/1d" "all/1m" "floor" "all/floor" "GRASS" "speed-up"
echo "|-------------|--------------|---------------|---------------|--------|--------|--------|-----------|---------------|---------|"
printf '%s\n' "${rows[@]}"
echo
echo "each run column: wall seconds and peak resident MB; all/1d: all cores over one thread on disk;"
echo "all/1m: all cores over one thread, both with the default memory budget"
echo
echo "stage wall seconds of one more run each (stages of the iterations summed; the first includes start-up):"
printf '%s\n' "${stage_tables[@]}"
