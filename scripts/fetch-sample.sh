#!/usr/bin/env bash
# Puts the sample scene, data/L7_ETMs.tif, in place: a Landsat 7 ETM+ subset
# (6 bands, 349 x 352 pixels, Byte) that Debian ships inside the r-cran-stars
# package. Only the package archive is downloaded, never installed, so R is
# not needed. Does nothing when the scene is already there.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
target="$here/data/L7_ETMs.tif"
member="usr/lib/R/site-library/stars/tif/L7_ETMs.tif"

if [ -s "$target" ]; then
  exit 0
fi

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "fetch-sample: downloading r-cran-stars for the sample scene"
if ! (cd "$work" && apt-get download -qq r-cran-stars >/dev/null 2>&1); then
  # A fresh machine's package lists may not know the package yet.
  $sudo apt-get update -qq
  (cd "$work" && apt-get download -qq r-cran-stars >/dev/null)
fi

deb=$(find "$work" -maxdepth 1 -name 'r-cran-stars_*.deb' | head -n 1)
if [ -z "$deb" ]; then
  echo "fetch-sample: the r-cran-stars package could not be downloaded" >&2
  exit 1
fi
dpkg -x "$deb" "$work/extract"
if [ ! -s "$work/extract/$member" ]; then
  echo "fetch-sample: $(basename "$deb") does not contain $member" >&2
  exit 1
fi

mkdir -p "$here/data"
# Copied under a temporary name first, so an interrupted copy never passes
# for the scene on the next run.
cp "$work/extract/$member" "$target.part"
mv "$target.part" "$target"
echo "fetch-sample: wrote data/L7_ETMs.tif"
