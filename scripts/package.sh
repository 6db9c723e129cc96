#!/usr/bin/env bash
# Makes the Debian packages gvxd, libgvx-common, libgvx-common-dev and gvx-tools and has lintian look at them.
#   scripts/package.sh [DIR]     default: out/packages
# GVX_BUILD_DIR=DIR packs that build, whatever its kind, instead of making a release build for /usr.
# Exits 0 when the packages are made and lintian finds no error, 1 otherwise.
set -euo pipefail
cd "$(dirname "$0")/.."

out=${1:-out/packages}
build=${GVX_BUILD_DIR:-}
if [[ -z $build ]]; then
  scripts/install-packages.sh
  build=build/package
  launcher=()
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S . -B "$build" -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DGVX_BUILD_TESTS=OFF >/dev/null
  cmake --build "$build" -- --quiet
fi

build=$(cd "$build" && pwd)
version=$(sed -n 's/^project(gvx VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
if ! grep -q "^gvx ($version) " packaging/changelog; then
  echo "packaging/changelog has no entry for version $version" >&2
  exit 1
fi
mkdir -p "$out"
out=$(cd "$out" && pwd)
rm -f "$out"/*.deb
umask 022
if ! cpack --config "$build/CPackConfig.cmake" -B "$out" >"$out/cpack.log" 2>&1; then
  cat "$out/cpack.log" >&2
  exit 1
fi
rm -rf "$out/_CPack_Packages"
lintian --allow-root --fail-on error --tag-display-limit 0 "$out"/*.deb
ls -l "$out"/*.deb
