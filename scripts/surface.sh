#!/bin/sh
# The public surface's descriptions (docs/surface/) against a build:
#
#   scripts/surface.sh BUILD_DIR             check them (as CTest surface/* does)
#   scripts/surface.sh --update BUILD_DIR    rewrite them after a change meant
#                                            to the surface, and list the names
#                                            CHANGELOG.md must mention
#   scripts/surface.sh --version BUILD_DIR   check that every part says VERSION
#
# BUILD_DIR (default build/default) must hold the library, the jar, the kpz
# tool and the Python package:
#   cmake --build --preset default --target KpzInterface kpzinterface_jar kpz kpz_python
# See docs/COMPATIBILITY.md.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
command=check
case "${1:-}" in
  --update) command=update; shift ;;
  --version) command=version; shift ;;
  -h|--help) sed -n '2,13p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
esac
build=${1:-$here/../build/default}
[ $# -gt 0 ] && shift
exec /usr/bin/python3 "$here/surface.py" "$command" "$build" "$@"
