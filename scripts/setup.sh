#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when any is
# missing, and fetches the sample scene into data/. Safe to run again.
# --with-qgis adds QGIS (qgis_process, its Python bindings, the GDAL data
# provider) for the test of the QGIS Processing plug-in; the command itself
# never needs it.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)

packages=(
  build-essential cmake pkg-config
  libgdal-dev gdal-bin
  qtbase5-dev
  libboost-dev
  libgtest-dev libgmock-dev
  time
  # the Python package: its binding, and what its users hold scenes in
  python3-dev pybind11-dev python3-numpy python3-pytest
  python3-xarray python3-dask python3-distributed python3-rioxarray python3-tqdm
  # the HTML report's charting library, and a browser to test the page in
  libjs-chart.js chromium
)
if [ "${1:-}" = "--with-qgis" ]; then
  packages+=(qgis python3-qgis qgis-providers)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

if [ -x "$here/scripts/fetch-sample.sh" ]; then
  "$here/scripts/fetch-sample.sh"
fi
