#!/usr/bin/env bash
# Peak resident memory and wall time of isodata on inputs of every reading
# path of the working copy: virtual rasters far larger than the machine's
# memory, a netCDF variable and an HDF4 dataset (read band by band through
# GDAL's whole-band read) and a tiled and a striped GeoTIFF (read in one
# pass), and the working copy's mask alone; prints one table.
#
#   bench/bounded.sh                 every row
#   bench/bounded.sh vrt40000 hdf4   some rows (vrt40000 vrt200000 tiled
#                                    striped netcdf hdf4 mask mask-whole)
#   BENCH_HUGE_SECONDS=120           how long the 200000 x 200000 VRT runs
#                                    before it is stopped (its working copy
#                                    alone is 60 GB; a full run takes hours)
#
# BUILD_DIR selects the build (default build/); workloads and the time -v
# reports stay in $BUILD_DIR/bench/bounded/ (BENCH_WORK moves them).
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$here/build}
scene="$here/data/L7_ETMs.tif"
work=${BENCH_WORK:-$build/bench/bounded}
huge_seconds=${BENCH_HUGE_SECONDS:-120}
rows=("$@")
[ ${#rows[@]} -gt 0 ] || rows=(vrt40000 vrt200000 tiled striped netcdf hdf4 mask mask-whole)
params=(-classes 8 -initial 4 -min-size 20 -merge-pairs 2 -iter 10 -std 10 -merge-dist 20)

for tool in gdal_translate gdalmdimtranslate /usr/bin/time timeout; do
  command -v "$tool" >/dev/null || { echo "bench: $tool is missing" >&2; exit 1; }
done
[ -x "$build/bin/isodata" ] || { echo "bench: $build/bin/isodata is missing (build first)" >&2; exit 1; }
[ -s "$scene" ] || "$here/scripts/fetch-sample.sh"
mkdir -p "$work"

field() { sed -n "s/^[[:space:]]*$1: //p" "$2"; }
seconds() { awk -F: '{ s = 0; for (i = 1; i <= NF; i++) s = s * 60 + $i; printf "%.1f", s }' <<<"$1"; }
free_gb() { df -Pk "$work" | awk 'NR == 2 { printf "%d", $4 / 1048576 }'; }

# Makes $2 with the command that follows unless it exists.
make_once() {
  local target=$1
  shift
  [ -s "$target" ] && return
  echo "bench: making $(basename "$target")"
  "$@"
}

# A 16000 x 16000 six-band Byte GeoTIFF: tiles of 256, or one-row strips.
geotiff() {
  local target=$1
  shift
  gdal_translate -q -of GTiff -outsize 16000 16000 -r bilinear "$@" "$scene" "$target.part.tif"
  mv "$target.part.tif" "$target"
}

# One three-dimensional netCDF variable (band, y, x) holding the six bands of
# the tiled GeoTIFF, through a multidimensional VRT.
netcdf() {
  local target=$1 source=$2 vrt="$work/bands.mdim.vrt" b sources=
  for b in 1 2 3 4 5 6; do
    sources+="<Source><SourceFilename>$source</SourceFilename><SourceBand>$b</SourceBand>"
    sources+="<SourceView>[newaxis,...]</SourceView><DestSlab offset=\"$((b - 1)),0,0\"/></Source>"
  done
  cat >"$vrt" <<EOF
<VRTDataset><Group name="/"><Dimension name="band" size="6"/><Dimension name="y" size="16000"/>
<Dimension name="x" size="16000"/><Array name="bands"><DataType>Byte</DataType><DimensionRef ref="band"/>
<DimensionRef ref="y"/><DimensionRef ref="x"/>$sources</Array></Group></VRTDataset>
EOF
  gdalmdimtranslate -q "$vrt" "$target.part.nc" 2>/dev/null
  mv "$target.part.nc" "$target"
}

table=()
# Runs the command that follows under time -v and adds the row labelled $2
# (the report is time_$1.txt). With BENCH_LIMIT set, the command is stopped
# (SIGINT, as Ctrl-C) after that many seconds.
measure_command() {
  local key=$1 name=$2 report="$work/time_$1.txt" status=0 note=finished wall peak
  shift 2
  [ -z "${BENCH_LIMIT:-}" ] || set -- timeout -s INT "$BENCH_LIMIT" "$@"
  /usr/bin/time -v -o "$report" "$@" >"$report.out" 2>&1 || status=$?
  if [ -n "${BENCH_LIMIT:-}" ] && [ "$status" -eq 124 ]; then
    note="stopped after $BENCH_LIMIT s"
  elif [ "$status" -ne 0 ]; then
    note="failed ($status, see $report.out)"
  fi
  wall=$(seconds "$(field 'Elapsed (wall clock) time (h:mm:ss or m:ss)' "$report")")
  peak=$(awk -v k="$(field 'Maximum resident set size (kbytes)' "$report")" 'BEGIN { printf "%.0f", k / 1024 }')
  table+=("$(printf '| %-26s | %8s | %7s | %-20s |' "$name" "$wall" "$peak" "$note")")
}

# isodata on the input $3 as the row $1 labelled $2.
measure() {
  local out="$work/classes_$1"
  measure_command "$1" "$2" "$build/bin/isodata" -q -overwrite "${params[@]}" "$3" "$out"
  rm -f "$out" "$out.hdr" "$out.aux.xml"
}

for row in "${rows[@]}"; do
  case $row in
  vrt40000)
    make_once "$work/L7_40000.vrt" gdal_translate -q -of VRT -outsize 40000 40000 "$scene" "$work/L7_40000.vrt"
    measure vrt40000 "VRT 40000x40000" "$work/L7_40000.vrt" ;;
  vrt200000)
    make_once "$work/L7_200000.vrt" gdal_translate -q -of VRT -outsize 200000 200000 "$scene" "$work/L7_200000.vrt"
    # Within the time limit the run writes well under this much.
    if [ "$(free_gb)" -lt 40 ]; then
      echo "bench: skipping the 200000 x 200000 VRT: under 40 GB free beside $work" >&2
      continue
    fi
    BENCH_LIMIT=$huge_seconds measure vrt200000 "VRT 200000x200000" "$work/L7_200000.vrt" ;;
  tiled)
    make_once "$work/L7_16000_tiled.tif" geotiff "$work/L7_16000_tiled.tif" -co TILED=YES
    measure tiled "GeoTIFF 16000 tiled" "$work/L7_16000_tiled.tif" ;;
  striped)
    make_once "$work/L7_16000_striped.tif" geotiff "$work/L7_16000_striped.tif" -co BLOCKYSIZE=1
    measure striped "GeoTIFF 16000 striped" "$work/L7_16000_striped.tif" ;;
  netcdf)
    make_once "$work/L7_16000_tiled.tif" geotiff "$work/L7_16000_tiled.tif" -co TILED=YES
    make_once "$work/L7_16000.nc" netcdf "$work/L7_16000.nc" "$work/L7_16000_tiled.tif"
    measure netcdf "netCDF 16000" "$work/L7_16000.nc" ;;
  hdf4)
    # One band: GDAL's HDF4 writer takes hours over six bands of this size.
    make_once "$work/L7_16000_striped.tif" geotiff "$work/L7_16000_striped.tif" -co BLOCKYSIZE=1
    make_once "$work/L7_16000.hdf" gdal_translate -q -of HDF4Image -b 1 "$work/L7_16000_striped.tif" \
      "$work/L7_16000.hdf"
    measure hdf4 "HDF4 16000, 1 band" "$work/L7_16000.hdf" ;;
  mask | mask-whole)
    # The working copy's mask alone: nodata masks of six UInt16 bands, read
    # into bounded memory (mask) or whole as the earlier build read them.
    make_once "$work/L7_40000_u16.vrt" gdal_translate -q -of VRT -ot UInt16 -a_nodata 0 -outsize 40000 40000 \
      "$scene" "$work/L7_40000_u16.vrt"
    whole=()
    [ "$row" = mask ] || whole=(--whole)
    measure_command "$row" "working mask 40000${whole:+ (whole)}" "$build/bin/isodata_working_mask" "${whole[@]}" \
      "$work/L7_40000_u16.vrt" "$work" ;;
  *) echo "bench: unknown row $row" >&2; exit 1 ;;
  esac
done

echo
echo "$(nproc) cores; $(gdalinfo --version); $build/bin/isodata"
echo "wall seconds and peak resident MB (time -v) of one run each"
echo
printf '| %-26s | %8s | %7s | %-20s |\n' input wall "peak MB" run
echo "|----------------------------|----------|---------|----------------------|"
printf '%s\n' "${table[@]}"
