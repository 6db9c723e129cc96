# Receivers that are not ours: ffmpeg from an SDP text, GStreamer from the same port and caps.

write_sdp() {
  cat >"$out/stream.sdp" <<SDP
v=0
o=- 0 0 IN IP4 127.0.0.1
s=camera
c=IN IP4 127.0.0.1
t=0 0
m=video $1 RTP/AVP 99
a=rtpmap:99 H264/90000
a=fmtp:99 packetization-mode=1
m=audio $2 RTP/AVP 8
a=rtpmap:8 PCMA/8000
SDP
}

gvxctl_logged() { run_bounded 30 "$build/bin/gvxctl" "$@" >>"$out/gvxctl_receivers.log" 2>&1; }

# play_to NAME VIDEO_PORT AUDIO_PORT FILE: streams the clip to foreign ports from its beginning to its end. FILE is what
# the receiver writes; the stream is stopped when the clip's time is over and the file has stopped growing.
play_to() {
  local dev=CAM_$1 id=live-$1 code=0
  gvxctl_logged add-device --gateway "$port" --dev "$dev" --extend '{"media":"demo"}' || code=1
  gvxctl_logged start-stream --gateway "$port" --dev "$dev" --service-id "$id" --dst "$2" --audio-port "$3" || code=1
  sleep "$clip_seconds"
  wait_until 30 has_settled "$4" || true
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
  write_sdp "$video" "$audio"
  say "ffmpeg receives by itself from stream.sdp"
  ffmpeg -nostdin -y -v warning -protocol_whitelist file,udp,rtp -buffer_size 8388608 -i "$out/stream.sdp" \
    -map 0:v -c copy -flush_packets 1 -f h264 "$out/ffmpeg.h264" >"$out/ffmpeg_receive.log" 2>&1 &
  receiver=$!
  children+=("$receiver")
  wait_until 20 is_bound udp "$audio" || die "ffmpeg opened no ports: $(cat "$out/ffmpeg_receive.log")"
  play_to ffmpeg "$video" "$audio" "$out/ffmpeg.h264"
  say_goodbye "$video" "$audio"
  wait_until 10 is_gone "$receiver" || stop_child "$receiver" INT 10 || true
  judge_recording ffmpeg "$out/ffmpeg.h264"
}

# The gateway marks the last packet of every NAL unit, and GStreamer's parser takes each mark for the end of a picture.
# Through a file the bytes arrive without the marks, and the parser finds the pictures of several slices by itself.
receive_with_gstreamer() {
  local video receiver caps
  video=$(free_port udp 4)
  caps='application/x-rtp,media=(string)video,clock-rate=(int)90000,encoding-name=(string)H264,payload=(int)99'
  say "GStreamer receives and decodes by itself"
  gst-launch-1.0 -e udpsrc address=127.0.0.1 port="$video" buffer-size=8388608 caps="$caps" \
    ! queue max-size-buffers=0 max-size-bytes=0 max-size-time=0 ! rtph264depay \
    ! 'video/x-h264,stream-format=(string)byte-stream,alignment=(string)nal' \
    ! filesink location="$out/gstreamer.h264" buffer-mode=unbuffered >"$out/gstreamer_receive.log" 2>&1 &
  receiver=$!
  children+=("$receiver")
  wait_until 40 is_bound udp "$video" || die "GStreamer opened no port: $(tail -n 5 "$out/gstreamer_receive.log")"
  play_to gstreamer "$video" $((video + 2)) "$out/gstreamer.h264"
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
