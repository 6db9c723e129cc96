#!/usr/bin/env bash
# Lets a gateway work for a long time and looks at what it takes of the system: twenty devices stream over UDP and TCP, with
# metadata, while devices and streams come and go, each under a code that was never there before. Prints the slopes of
# memory, descriptors and threads with their limits.
#   scripts/soak.sh [--minutes N] [--out DIR]     default: 20 minutes, out/soak
# GVX_BUILD_DIR=DIR uses the programs of that build folder instead of building.
# The status port, where the configuration has one (GVX_STATUS_PORT), is scraped each second.
# Exits 0 when all stays below its limit and no request is refused, 1 otherwise, 2 for a wrong use.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
minutes=20
out=$repo/out/soak

usage() {
  sed -n '2,9s/^# \{0,1\}//p' "$repo/scripts/soak.sh" >&2
  exit 2
}

while (($# > 0)); do
  case $1 in
    --minutes) [[ ${2:-} =~ ^[1-9][0-9]{0,3}$ ]] || usage; minutes=$2; shift 2 ;;
    --out) [[ -n ${2:-} ]] || usage; out=$2; shift 2 ;;
    *) usage ;;
  esac
done

build=${GVX_BUILD_DIR:-}
if [[ -z $build ]]; then
  "$repo/scripts/install-packages.sh"
  build=$repo/build/release
  launcher=()
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  (cd "$repo" && cmake --preset release "${launcher[@]}" -DGVX_BUILD_BENCH=OFF >/dev/null &&
    cmake --build --preset release --target gvxd gvx_plugin_file -- --quiet)
fi
exec python3 -B "$repo/scripts/lib/soak.py" "$(cd "$build" && pwd)" "$out" "$minutes"
