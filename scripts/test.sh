#!/usr/bin/env bash
# The README's test command: installs what is missing (QGIS included, for the
# Processing plug-in's test), builds, and runs every test with ctest, first
# in the normal build, then in the sanitizer build (skip the latter with
# --quick).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" --with-qgis

jobs=$(nproc)
run_suite() {
  local dir=$1
  shift
  cmake -S "$here" -B "$dir" "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest --output-on-failure -j "$jobs")
}

echo "== normal build"
run_suite "$here/build" -DCMAKE_BUILD_TYPE=Release
if [ "${1:-}" != "--quick" ]; then
  echo "== sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer)"
  UBSAN_OPTIONS=print_stacktrace=1 \
    run_suite "$here/build-sanitize" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DISODATA_SANITIZE=ON
fi
