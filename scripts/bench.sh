#!/usr/bin/env bash
# Builds the benchmarks and prints their tables, each value beside its floor in the same run.
#   scripts/bench.sh [spine] [frames] [sockets] [config] [memory]      default: all
# Exits 1 when a goal in a table is not met. Clips made by ffmpeg are kept in build/bench-clips.
set -euo pipefail
cd "$(dirname "$0")/.."

clips=build/bench-clips

make_clip() {
  local name=$1 size=$2 seconds=$3 rate=$4
  if [[ ! -s $clips/$name.h264 ]]; then
    ffmpeg -nostdin -v error -y -f lavfi -i "testsrc2=size=$size:rate=25,noise=alls=12:allf=t" -t "$seconds" \
      -c:v libx264 -preset veryfast -g 50 -bf 2 -slices 4 -b:v "$rate" -maxrate "$rate" -bufsize "$rate" \
      -bsf:v h264_mp4toannexb -f h264 "$clips/$name.part"
    mv "$clips/$name.part" "$clips/$name.h264"
  fi
}

run_bench() {
  echo
  "build/release/bin/$@" || failed=1
}

scripts/install-packages.sh
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
mkdir -p "$clips"
cmake --preset release "${launcher[@]}" -DGVX_BUILD_BENCH=ON >/dev/null
cmake --build --preset release -- --quiet

wanted=("$@")
((${#wanted[@]} > 0)) || wanted=(spine frames sockets config memory)
failed=0
for bench in "${wanted[@]}"; do
  case $bench in
    spine) run_bench bench_command_spine ;;
    frames)
      make_clip 1080p 1920x1080 10 4M
      make_clip 4k 3840x2160 5 16M
      run_bench bench_media_frames "$clips/1080p.h264" "$clips/4k.h264"
      ;;
    sockets) run_bench bench_media_sockets ;;
    config) run_bench bench_config_read ;;
    memory) run_bench bench_media_memory ;;
    *)
      echo "unknown benchmark: $bench (spine, frames, sockets, config or memory)" >&2
      exit 2
      ;;
  esac
done
exit "$failed"
