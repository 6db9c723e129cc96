#!/usr/bin/env bash
# Compares what plug-ins link with that of the last tagged release: a change that takes something away or moves it is
# refused, unless GVX_PLUGIN_ABI_VERSION has been raised since. What was only added is told.
#   scripts/check-abi.sh BUILD_FOLDER
set -euo pipefail
cd "$(dirname "$0")/.."

build=$(realpath "${1:?usage: check-abi.sh BUILD_FOLDER}")
if ! tag=$(git describe --tags --abbrev=0 --match 'v[0-9]*' 2>/dev/null); then
  echo "no tagged release yet, so there is no ABI to compare with"
  exit 0
fi

libraries=(base nss bp common)
folder=$(mktemp -d)
trap 'git worktree remove --force "$folder/release" 2>/dev/null || true; rm -rf "$folder"' EXIT
git worktree add --quiet --detach "$folder/release" "$tag"
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$folder/release" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DGVX_BUILD_TESTS=OFF \
  "${launcher[@]}" >/dev/null
cmake --build "$folder/build" --target "${libraries[@]/#/gvx_}" -- --quiet

# Classes that no installed header names are nobody's but ours.
public=$(cd "$folder/release" && sed -n 's/^  \(\S*\.h\))\{0,1\}$/src\/\1/p' src/*/CMakeLists.txt | sort)
private=$(cd "$folder/release" && find src/base src/nss src/bp src/gvx_common -name '*.h' | sort | comm -23 - <(echo "$public"))
names=$(cd "$folder/release" && sed -nE 's/^(class|struct) (\w+)( final)?( :.*)? ?\{.*/\2/p' $private | sort -u | paste -sd'|')
for kind in function variable; do
  printf '[suppress_%s]\n  name_regexp = (^|:: *|for )(gvx::)?(%s)(::|$)\n' "$kind" "$names"
done >"$folder/private.abignore"

version_of() { sed -n 's/^#define GVX_PLUGIN_ABI_VERSION //p' "$1"/src/gvx_common/adapter/*.h; }

broken=0
for library in "${libraries[@]}"; do
  code=0
  abidiff --headers-dir1 "$folder/release/src" --headers-dir2 src --drop-private-types \
    --no-unreferenced-symbols --suppressions "$folder/private.abignore" \
    "$folder/build/lib/libgvx_$library.so" "$build/lib/libgvx_$library.so" >"$folder/$library.txt" || code=$?
  if ((code == 0)); then
    echo "libgvx_$library.so: the ABI of $tag"
    continue
  fi
  cat "$folder/$library.txt"
  # The bits of abidiff's exit code: 1 and 2 are faults, 4 is a change, 8 an incompatible one.
  if ((code & 3)); then
    exit "$code"
  fi
  ((code & 8)) && broken=1
done
if ((broken)) && [[ $(version_of "$folder/release") == "$(version_of .)" ]]; then
  echo "plug-ins built for $tag would not run: raise GVX_PLUGIN_ABI_VERSION" >&2
  exit 1
fi
