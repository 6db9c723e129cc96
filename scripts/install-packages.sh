#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need. Does nothing when all are there.
set -euo pipefail

packages=(
  g++ cmake ninja-build ccache pkg-config python3 git
  libace-dev libtinyxml2-dev libjsoncpp-dev libexpat1-dev rapidjson-dev libssl-dev libsqlite3-dev libspdlog-dev libcli11-dev
  libmicrohttpd-dev prometheus-cpp-dev
  libboost-dev libgtest-dev libgmock-dev
  ffmpeg gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly
  gstreamer1.0-libav gir1.2-gst-rtsp-server-1.0 rtsp-server-perl python3-gi tshark libjemalloc2 libmimalloc2.0
  lighttpd apache2-bin nginx openssl curl doxygen abigail-tools
  dpkg-dev fakeroot lintian man-db systemd
  chromium python3-prometheus-client
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$'; then
    missing+=("$package")
  fi
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "installing packages: ${missing[*]}"
as_root=()
if ((EUID != 0)); then
  as_root=(sudo)
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive sh -c \
  'apt-get update && apt-get install -y --no-install-recommends "$@"' install "${missing[@]}" >"$log" 2>&1; then
  tail -n 30 "$log" >&2
  echo "packages could not be installed: ${missing[*]}" >&2
  exit 1
fi
