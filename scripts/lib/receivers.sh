# Receivers that are not ours, ffmpeg and GStreamer, by the session description that the gateway gives of a stream.

gvxctl_logged() { run_bounded 30 "$build/bin/gvxctl" "$@" >>"$out/gvxctl_receivers.log" 2>&1; }

# describe_to NAME VIDEO_PORT [AUDIO_PORT]: adds a device and has the gateway describe a stream to those ports: what it
# answers in NAME_answer.sdp, what a player takes of it in NAME.sdp. The stream that is started for it ends at once, since
# the receiver is to be there from the first packet on.
describe_to() {
  local stream=(--gateway "$port" --dev "CAM_$1" --service-id "described-$1")
  if ! { gvxctl_logged add-device --gateway "$port" --dev "CAM_$1" --extend '{"media":"demo"}' &&
    gvxctl_logged start-stream "${stream[@]}" --dst "$2" ${3:+--audio-port "$3"} \
      --sdp "$out/$1_answer.sdp" --player-sdp "$out/$1.sdp" &&
    gvxctl_logged stop-stream "${stream[@]}"; }; then
    die "no description of a stream: $(tail -n 5 "$out/gvxctl_receivers.log")"
  fi
}

# play_to NAME FILE VIDEO_PORT [AUDIO_PORT]: streams the clip to foreign ports from its beginning to its end. FILE is what
# the receiver writes; the stream is stopped when the clip's time is over and the file has stopped growing.
play_to() {
  local dev=CAM_$1 id=live-$1 code=0
  gvxctl_logged start-stream --gateway "$port" --dev "$dev" --service-id "$id" --dst "$3" ${4:+--audio-port "$4"} || code=1
  sleep "$clip_seconds"
  wait_until 30 has_settled "$2" || true
  run_bounded 30 "$build/bin/gvxctl" stop-stream --gateway "$port" --dev "$dev" --service-id "$id" --json \
    >"$out/$1_sent.json" 2>>"$out/gvxctl_receivers.log" || code=1
  gvxctl_logged del-device --gateway "$port" --dev "$dev" || code=1
  note "$1_commands_failed" "$code"
}

has_settled() {
  local before after
  before=$(stat -c %s "$1" 2>/dev/null || echo 0)
  sleep 1.5
  after=$(stat -c %s "$1" 2>/dev/null || echo 0)
  ((after > 0 && before == after))
}

# An empty receiver report and a BYE (RFC 3550, sections 6.1 and 6.6) to the control port behind an RTP port: the
# receiver then knows that it has all.
say_goodbye() {
  local rtp
  for rtp in "$@"; do
    printf '\x80\xc9\x00\x01\x00\x00\x00\x00\x81\xcb\x00\x01\x00\x00\x00\x00' \
      >"/dev/udp/127.0.0.1/$((rtp + 1))" || true
  done
}

receive_with_ffmpeg() {
  local video audio receiver
  video=$(free_port udp 4)
  audio=$((video + 2))
  say "ffmpeg receives by itself, from ffmpeg.sdp"
  describe_to ffmpeg "$video" "$audio"
  ffmpeg -nostdin -y -v warning -protocol_whitelist file,udp,rtp -buffer_size 8388608 -i "$out/ffmpeg.sdp" \
    -map 0:v -c copy -flush_packets 1 -f h264 "$out/ffmpeg.h264" >"$out/ffmpeg_receive.log" 2>&1 &
  receiver=$!
  children+=("$receiver")
  wait_until 20 is_bound udp "$audio" || die "ffmpeg opened no ports: $(cat "$out/ffmpeg_receive.log")"
  play_to ffmpeg "$out/ffmpeg.h264" "$video" "$audio"
  say_goodbye "$video" "$audio"
  wait_until 10 is_gone "$receiver" || stop_child "$receiver" INT 10 || true
  judge_recording ffmpeg "$out/ffmpeg.h264"
}

# The gateway marks the last packet of every NAL unit, and GStreamer's parser takes each mark for the end of a picture.
# Through a file the bytes arrive without the marks, and the parser finds the pictures of several slices by itself.
receive_with_gstreamer() {
  local video receiver
  video=$(free_port udp 4)
  say "GStreamer receives and decodes by itself, from gstreamer.sdp"
  describe_to gstreamer "$video"
  gst-launch-1.0 -e filesrc location="$out/gstreamer.sdp" ! sdpdemux \
    ! queue max-size-buffers=0 max-size-bytes=0 max-size-time=0 ! rtph264depay \
    ! 'video/x-h264,stream-format=(string)byte-stream,alignment=(string)nal' \
    ! filesink location="$out/gstreamer.h264" buffer-mode=unbuffered >"$out/gstreamer_receive.log" 2>&1 &
  receiver=$!
  children+=("$receiver")
  wait_until 40 is_bound udp "$video" || die "GStreamer opened no port: $(tail -n 5 "$out/gstreamer_receive.log")"
  play_to gstreamer "$out/gstreamer.h264" "$video"
  stop_child "$receiver" INT 20 || true
  decode_with_gstreamer
}

# The sink prints a line for each picture.
decode_with_gstreamer() {
  run_bounded 600 gst-launch-1.0 -v filesrc location="$out/gstreamer.h264" ! h264parse ! avdec_h264 \
    ! fakesink name=pictures silent=false sync=false >"$out/gstreamer_decode.log" 2>&1 || true
  note gstreamer_decoded "$(grep -c 'pictures: last-message = chain' "$out/gstreamer_decode.log" || true)"
  note gstreamer_decode_errors \
    "$(cat "$out/gstreamer_receive.log" "$out/gstreamer_decode.log" | grep -Ec '^(ERROR|WARNING)' || true)"
}
