#!/usr/bin/env bash
# Installs the QGIS Processing plug-in (qgis/isodata_processing) into a QGIS
# profile and enables it there, so the toolbox and qgis_process offer
# isodata:classify. Replaces an earlier copy; safe to run again.
#
#   scripts/install-qgis-plugin.sh [--profile <profile folder>]
#
# The profile folder defaults to the current user's default profile
# (~/.local/share/QGIS/QGIS3/profiles/default). QGIS must not be running
# meanwhile, or it may write its own settings back over the change.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
name=isodata_processing
profile="${XDG_DATA_HOME:-$HOME/.local/share}/QGIS/QGIS3/profiles/default"

while [ $# -gt 0 ]; do
  case "$1" in
    --profile) profile=${2:?--profile needs a folder}; shift 2 ;;
    -h|--help) sed -n '2,11p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "install-qgis-plugin: unknown argument '$1'" >&2; exit 1 ;;
  esac
done

plugins="$profile/python/plugins"
mkdir -p "$plugins" "$profile/QGIS"
rm -rf "${plugins:?}/$name"
cp -R "$here/qgis/$name" "$plugins/$name"
find "$plugins/$name" -name __pycache__ -prune -exec rm -rf {} +

# Enabling is the key <name>=true in the [PythonPlugins] section of the
# profile's QGIS3.ini; every other line of the file is kept as it is.
ini="$profile/QGIS/QGIS3.ini"
touch "$ini"
awk -v key="$name" '
  function put() { print key "=true"; done = 1 }
  /^\[/ { if (inside && !done) put(); inside = ($0 == "[PythonPlugins]"); seen = seen || inside }
  inside && index($0, key "=") == 1 { if (!done) put(); next }
  { print }
  END { if (!done) { if (!seen) { if (NR > 0) print ""; print "[PythonPlugins]" } put() } }
' "$ini" > "$ini.new"
mv "$ini.new" "$ini"
echo "install-qgis-plugin: installed and enabled $name in $profile"
