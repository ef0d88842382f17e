#!/usr/bin/env bash
# install_test.sh <build folder> <sample scene>: installs the build into a
# temporary prefix and classifies the sample scene with the installed command,
# with the build folder out of reach, and compares the result with the build's.
set -euo pipefail
build=$1 scene=$2
[ -s "$scene" ] || { echo "skipped: the sample scene is not fetched"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
for header in ClassificationISO.h KalAlgo.h KalDataSource.h KalUtility.h KalGeometry.h KalExport.h; do
  [ -s "$work/prefix/include/isodata/$header" ] || { echo "missing include/isodata/$header"; exit 1; }
done
# A host builds against the installed headers alone (with Qt and Boost).
printf '#include <ClassificationISO.h>\n#include <KalAlgo.h>\n#include <KalDataSource.h>\nint main() { stInfoClassificationISO r; return r.maxIterations; }\n' >"$work/host.cpp"
c++ -std=c++17 -fPIC -fsyntax-only -I "$work/prefix/include/isodata" $(pkg-config --cflags Qt5Core) "$work/host.cpp"
"$build/bin/isodata" -q "$scene" "$work/built"
# Moved away from the build: nothing may lead the installed binary back to it.
mv "$work/prefix" "$work/moved"
env -i PATH=/usr/bin:/bin "$work/moved/bin/isodata" -q "$scene" "$work/installed"
cmp "$work/built" "$work/installed"
echo "installed isodata ran from a moved prefix and wrote the build's result"

# The Python package, where the build has it: imported from the moved prefix
# by Debian's python3 with nothing else in reach, it classifies the scene
# read as an array into the very classes of the command.
package=$(cd "$work/moved" && ls -d lib/python3*/*-packages/isodata 2>/dev/null | head -n 1 || true)
if [ -n "$package" ]; then
  env -i PATH=/usr/bin:/bin PYTHONPATH="$work/moved/$(dirname "$package")" /usr/bin/python3 - "$scene" "$work/built" <<'PY'
import sys
import numpy as np
from osgeo import gdal
import isodata
assert isodata.__file__.startswith(sys.path[1]) or "moved" in isodata.__file__, isodata.__file__
labels = isodata.ISODATA().fit(gdal.Open(sys.argv[1]).ReadAsArray(), progress=False).labels_
assert labels.tobytes() == np.fromfile(sys.argv[2], dtype=np.uint8).tobytes(), "the installed package's classes differ"
PY
  echo "the installed Python package ran from the moved prefix and found the command's classes"
fi
