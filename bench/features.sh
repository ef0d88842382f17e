#!/usr/bin/env bash
# What the validity mask and the class statistics cost, each as a ratio
# measured in one session on one file:
#  - a run of an 8000 x 8000 scene whose border (30 % of its pixels) is
#    declared nodata, with the masks honoured (the default) and with them
#    switched off (-srcnodata None -mask none), medians of BENCH_REPEATS;
#  - the labelling pass of the plug-in's run with and without the class
#    statistics (isodata_label_pass), on the plain 8000 x 8000 scene, and
#    with the bands' covariance (for separability) over the statistics alone.
#
#   bench/features.sh [size]     default 8000
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$here/build}
size=${1:-8000}
repeats=${BENCH_REPEATS:-3}
work="$build/bench/workloads"
mkdir -p "$work"
[ -x "$build/bin/isodata_label_pass" ] || "$here/scripts/build.sh" isodata isodata_plugin isodata_label_pass
input="$work/L7_${size}.tif"
[ -s "$input" ] || gdal_translate -q -of GTiff -co COMPRESS=NONE -outsize "$size" "$size" -r bilinear \
  "$here/data/L7_ETMs.tif" "$input"

# The border: 0 written into a frame around an inner rectangle of 83.7 % of
# each side (0.837^2 = 0.70), declared as nodata.
bordered="$work/L7_${size}_border.tif"
if [ ! -s "$bordered" ]; then
  gdal_translate -q -co COMPRESS=NONE -a_nodata 0 "$input" "$bordered.part.tif"
  read -r x0 y0 px py < <(gdalinfo "$input" | sed -n 's/^Origin = (\(.*\),\(.*\))$/\1 \2/p; s/^Pixel Size = (\(.*\),\(.*\))$/\1 \2/p' |
    tr '\n' ' ' | awk '{ print $1, $2, $3, $4 }')
  frame=$(awk -v n="$size" -v x0="$x0" -v y0="$y0" -v px="$px" -v py="$py" 'BEGIN {
    m = int(n * (1 - 0.837) / 2 + 0.5)
    ax = x0; ay = y0; bx = x0 + n * px; by = y0 + n * py
    ix = x0 + m * px; iy = y0 + m * py; jx = x0 + (n - m) * px; jy = y0 + (n - m) * py
    printf "POLYGON((%f %f,%f %f,%f %f,%f %f,%f %f),(%f %f,%f %f,%f %f,%f %f,%f %f))",
      ax, ay, bx, ay, bx, by, ax, by, ax, ay, ix, iy, ix, jy, jx, jy, jx, iy, ix, iy }')
  printf 'id,WKT\n1,"%s"\n' "$frame" > "$work/border.csv"
  gdal_rasterize -q -b 1 -b 2 -b 3 -b 4 -b 5 -b 6 -burn 0 -burn 0 -burn 0 -burn 0 -burn 0 -burn 0 \
    -l border "$work/border.csv" "$bordered.part.tif"
  mv "$bordered.part.tif" "$bordered"
fi
cat "$input" "$bordered" >/dev/null

median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
wall() { /usr/bin/time -f %e "$@" 2>&1 >/dev/null | tail -1; }
params=(-q -overwrite -classes 8 -initial 4 -min-size 20 -merge-pairs 2 -iter 10 -std 10 -merge-dist 20)
masked=() plain=() with=() without=() covariance=()
for ((r = 1; r <= repeats; r++)); do
  echo "bench: round $r of $repeats" >&2
  masked+=("$(wall "$build/bin/isodata" "${params[@]}" "$bordered" "$work/masked")")
  plain+=("$(wall "$build/bin/isodata" "${params[@]}" -srcnodata None -mask none "$bordered" "$work/plain")")
  with+=("$("$build/bin/isodata_label_pass" "$build/bin/libisodata.so" "$input" "$work/stats.img" 1 | cut -d' ' -f2)")
  without+=("$("$build/bin/isodata_label_pass" "$build/bin/libisodata.so" "$input" "$work/stats.img" 0 | cut -d' ' -f2)")
  covariance+=("$("$build/bin/isodata_label_pass" "$build/bin/libisodata.so" "$input" "$work/stats.img" 2 | cut -d' ' -f2)")
done
m=$(median "${masked[@]}") p=$(median "${plain[@]}") w=$(median "${with[@]}") o=$(median "${without[@]}")
c=$(median "${covariance[@]}")
echo
echo "$(nproc) cores; medians of $repeats; seconds"
echo
echo "| ${size} x ${size} | masks honoured | masks off | ratio |"
echo "|---|---|---|---|"
awk -v a="$m" -v b="$p" 'BEGIN { printf "| 30 %% nodata border, whole run | %s | %s | %.2f |\n", a, b, a / b }'
awk -v a="$w" -v b="$o" 'BEGIN { printf "| labelling pass, with / without class statistics | %s | %s | %.2f |\n", a, b, a / b }'
awk -v a="$c" -v b="$w" 'BEGIN { printf "| labelling pass, statistics with / without covariance | %s | %s | %.2f |\n", a, b, a / b }'
