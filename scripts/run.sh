#!/usr/bin/env bash
# Builds the gateway, streams a camera and a real clip through it and shows what arrived. From a fresh clone on Debian 12.
#   scripts/run.sh [--seconds N] [--out DIR] [--keep] [--camera URL --user NAME [--snapshot URL]]
#     --seconds N   seconds of streaming, half over UDP and half over TCP (default 10)
#     --out DIR     folder for what is received, the figures and the logs (default out/)
#     --camera URL  the camera that is shown: rtsp://ADDRESS[:PORT][/PATH]. Without it the script starts one.
#     --user NAME   user at that camera; the password comes from CAMERA_PASSWORD, else from the terminal
#     --snapshot URL  a picture of its web server: http://ADDRESS[:PORT]/PATH
#     --keep        go on with the clip in a loop until Ctrl-C
# GVX_BUILD_DIR=DIR uses the programs of that build folder instead of building.
# Exits 0 when every line of the table is right, 1 when one is not, 2 for a wrong use.
set -euo pipefail
shopt -s inherit_errexit

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
for part in process ports clip metadata gateway receivers alarms camera; do
  # shellcheck source=/dev/null
  source "$repo/scripts/lib/$part.sh"
done

seconds=10
out=$repo/out
keep=false
camera_url=
camera_user=
snapshot_url=

usage() {
  sed -n '2,11s/^# \{0,1\}//p' "$repo/scripts/run.sh" >&2
  exit 2
}

parse_arguments() {
  while (($# > 0)); do
    case $1 in
      --seconds) [[ ${2:-} =~ ^[1-9][0-9]{0,4}$ ]] || usage; seconds=$2; shift 2 ;;
      --out) [[ -n ${2:-} ]] || usage; out=$2; shift 2 ;;
      --keep) keep=true; shift ;;
      --camera) [[ -n ${2:-} ]] || usage; camera_url=$2; shift 2 ;;
      --snapshot) [[ -n ${2:-} ]] || usage; snapshot_url=$2; shift 2 ;;
      --user) [[ -n ${2:-} ]] || usage; camera_user=$2; shift 2 ;;
      *) usage ;;
    esac
  done
  [[ -n $camera_url ]] || [[ -z $camera_user$snapshot_url ]] || usage
  # Each transport plays the clip once; two seconds are the least that holds several groups of pictures.
  clip_seconds=$(((seconds + 1) / 2))
  ((clip_seconds >= 2)) || clip_seconds=2
}

build_programs() {
  build=${GVX_BUILD_DIR:-}
  if [[ -n $build ]]; then
    build=$(cd "$build" && pwd)
    return
  fi
  "$repo/scripts/install-packages.sh"
  build=$repo/build/release
  say "building (log: build.log)"
  (
    cd "$repo"
    launcher=()
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    cmake --preset release "${launcher[@]}" -DGVX_BUILD_BENCH=OFF
    cmake --build --preset release --target gvxd gvxctl gvx-plugin-check gvx_plugin_file gvx_plugin_rtsp
  ) >"$out/build.log" 2>&1 || die "the build failed: $(tail -n 20 "$out/build.log")"
}

clean_output() {
  mkdir -p "$out"
  out=$(cd "$out" && pwd)
  rm -rf "$out"/{conf,root,log,log.away,clip,metadata_udp,metadata_tcp,pictures}
  rm -f "$out"/*.{h264,video,alaw,md5,sdp,json,log,png,jpg,facts}
}

play_demo() {
  say "links, device and streams: the clip over UDP, then over TCP"
  run_bounded $((clip_seconds * 2 + 120)) "$build/bin/gvxctl" demo --gateway "$port" \
    --extend '{"media":"demo"}' --out "$out" --summary "$out/demo.json" --metadata --expect-frames "$clip_frames" \
    --timeout $((clip_seconds + 40)) 2>&1 | tee -i "$out/gvxctl.log" || note demo_failed 1
}

keep_streaming() {
  say "streaming on until Ctrl-C"
  "$build/bin/gvxctl" demo --gateway "$port" --dev CAM009 --extend '{"media":"demo_loop"}' --out "$out" \
    --keep 2>&1 | tee -i "$out/gvxctl_keep.log" || note keep_failed 1
}

main() {
  parse_arguments "$@"
  clean_output
  facts=$out/run.facts
  : >"$facts"
  note seconds "$seconds"
  trap stop_children EXIT
  trap 'exit 130' INT TERM
  build_programs
  make_clip
  make_metadata
  start_camera
  start_gateway
  show_camera
  play_demo
  decode_recording udp stream.h264
  decode_recording tcp stream_tcp.h264
  take_picture
  show_metadata
  receive_with_ffmpeg
  receive_with_gstreamer
  show_alarms
  if $keep; then
    trap ':' INT  # Ctrl-C ends the streaming, not this script: the gateway is still to be stopped
    keep_streaming
    trap 'exit 130' INT
  fi
  stop_gateway
  python3 "$repo/scripts/lib/summary.py" "$out"
}

main "$@"
