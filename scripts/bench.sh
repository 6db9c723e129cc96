#!/usr/bin/env bash
# Builds the benchmarks and prints their tables, each value beside its floor in the same run.
#   scripts/bench.sh [spine] [media] [config] [memory] [links] [alarms] [sdp] [rtp] [http] [scale] [camera]
#   default: all but scale and camera
# Exits 1 when a goal in a table is not met. Clips made by ffmpeg are kept in build/bench-clips.
set -euo pipefail
cd "$(dirname "$0")/.."

clips=build/bench-clips

# Noise keeps the encoder at its rate; one slice a picture, as cameras send it.
make_clip() {
  local file=$1 size=$2 seconds=$3 rate=$4
  shift 4
  if [[ ! -s $clips/$file ]]; then
    ffmpeg -nostdin -v error -y -f lavfi -i "testsrc2=size=$size:rate=25,noise=alls=12:allf=t" -t "$seconds" \
      -g 50 -b:v "$rate" -maxrate "$rate" -bufsize "$rate" "$@" "$clips/$file.part"
    mv "$clips/$file.part" "$clips/$file"
  fi
}

make_clips() {
  local h264=(-c:v libx264 -preset veryfast -bf 2 -x264-params "slices=1:sliced-threads=0" -bsf:v h264_mp4toannexb)
  make_clip 1080p_4M.h264 1920x1080 10 4M "${h264[@]}" -f h264
  make_clip 4k_16M.h264 3840x2160 5 16M "${h264[@]}" -f h264
  make_clip 1080p_4M.h265 1920x1080 6 4M -c:v libx265 -preset ultrafast -x265-params log-level=none:bframes=0 -f hevc
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
((${#wanted[@]} > 0)) || wanted=(spine media config memory links alarms sdp rtp http)
failed=0
for bench in "${wanted[@]}"; do
  case $bench in
    spine) run_bench bench_command_spine ;;
    media)
      make_clips
      run_bench bench_media_path "$clips/1080p_4M.h264" "$clips/4k_16M.h264" "$clips/1080p_4M.h265"
      ;;
    config) run_bench bench_config_read ;;
    memory) run_bench bench_media_memory ;;
    links)
      run_bench bench_link_frames
      run_bench bench_secure_links
      ;;
    alarms) run_bench bench_alarm_store ;;
    sdp) run_bench bench_sip_sdp ;;
    http) run_bench bench_http ;;
    rtp)
      make_clips
      run_bench bench_rtp_receive "$clips/1080p_4M.h264"
      ;;
    scale)
      make_clips
      echo
      python3 bench/scale.py --gvxd build/release/bin/gvxd --gvxctl build/release/bin/gvxctl \
        --plugin-dir build/release/plugins --conf conf --clip "$clips/1080p_4M.h264" || failed=1
      ;;
    camera)
      # As cameras send it, without pictures out of order; longer than the measurement.
      make_clip camera_1080p_4M.mp4 1920x1080 10 4M -c:v libx264 -preset ultrafast -tune zerolatency \
        -x264-params "slices=1:sliced-threads=0" -f mp4
      [[ -s $clips/camera_1080p_4M.ts ]] ||
        ffmpeg -nostdin -v error -y -stream_loop 17 -i "$clips/camera_1080p_4M.mp4" -c copy -f mpegts "$clips/camera_1080p_4M.ts"
      echo
      python3 bench/camera.py --gvxd build/release/bin/gvxd --gvxctl build/release/bin/gvxctl \
        --plugin-dir build/release/plugins --conf conf --clip "$clips/camera_1080p_4M.ts" || failed=1
      ;;
    *)
      echo "unknown benchmark: $bench (spine, media, config, memory, links, alarms, sdp, rtp, http, scale or camera)" >&2
      exit 2
      ;;
  esac
done
exit "$failed"
