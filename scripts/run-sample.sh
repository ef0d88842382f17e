#!/usr/bin/env bash
# Classifies the sample scene end to end: set-up (packages and the scene),
# build, then isodata on data/L7_ETMs.tif. Writes out/L7_classes (ENVI) and
# the quick-look out/L7_classes.png, replacing the previous ones.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
"$here/scripts/build.sh" isodata isodata_plugin

mkdir -p "$here/out"
cd "$here"
build/bin/isodata -overwrite -preview out/L7_classes.png data/L7_ETMs.tif out/L7_classes "$@"
