# A camera that is not ours: found, added, streamed over UDP and TCP, killed and started again.

# The reader's camera, else one of GStreamer's RTSP server, with Digest and a password of this run.
start_camera() {
  if [[ -n $camera_url ]]; then
    split_camera_url
    [[ -n ${CAMERA_PASSWORD:-} ]] || read -rsp "Password of $camera_user at $camera_host: " CAMERA_PASSWORD
    export CAMERA_PASSWORD
    return
  fi
  say "a camera that is not ours: GStreamer's RTSP server with Digest, H.264 and G.711A"
  CAMERA_PASSWORD=$(od -An -N12 -tx1 /dev/urandom | tr -d ' \n')
  export CAMERA_PASSWORD
  camera_user=admin camera_host=127.0.0.1 camera_port=0 camera_path=/live camera_http=0
  run_camera
  camera_extend=$(printf '{"main":"%s","snapshot":"/snapshot.jpg","httpPort":%s}' "$camera_path" "$camera_http")
}

split_camera_url() {
  [[ $camera_url =~ ^rtsp://([0-9.]+)(:([0-9]+))?(/[^[:space:]\"]*)?$ ]] ||
    die "--camera takes rtsp://ADDRESS[:PORT][/PATH], with an IPv4 address and without user and password"
  camera_host=${BASH_REMATCH[1]} camera_port=${BASH_REMATCH[3]:-554} camera_path=${BASH_REMATCH[4]:-/}
  camera_extend=$(printf '{"main":"%s"}' "$camera_path")
  [[ -n $snapshot_url ]] || return 0
  [[ $snapshot_url =~ ^http://([0-9.]+)(:([0-9]+))?(/[^[:space:]\"]*)$ && ${BASH_REMATCH[1]} == "$camera_host" ]] ||
    die "--snapshot takes http://ADDRESS[:PORT]/PATH with the address of --camera"
  camera_extend=$(printf '{"main":"%s","snapshot":"%s","httpPort":%s}' "$camera_path" "${BASH_REMATCH[4]}" \
    "${BASH_REMATCH[3]:-80}")
}

# Keeps the ports that it got at first.
run_camera() {
  /usr/bin/python3 -B "$repo/scripts/lib/rtsp_camera.py" --port "$camera_port" --http-port "$camera_http" \
    --picture "$out/camera_picture.jpg" >"$out/camera.log" 2>"$out/camera_errors.log" &
  camera=$!
  children+=("$camera")
  wait_until 30 grep -q '^port ' "$out/camera.log" || die "the camera did not start: $(tail -n 5 "$out/camera_errors.log")"
  camera_port=$(sed -n 's/^port //p' "$out/camera.log")
  camera_http=$(sed -n 's/^http //p' "$out/camera.log")
}

show_camera() {
  say "the camera at $camera_host:$camera_port: searched for, and driven by the plug-in without a gateway"
  find_camera
  check_camera
  say "the camera: added, and streamed over UDP and TCP beside a direct connection"
  add_camera || die "the camera cannot be added: $(tail -n 5 "$out/gvxctl_receivers.log")"
  record_directly
  stream_camera udp
  stream_camera tcp --tcp
  wait_until 60 has_pictures "$out/camera_udp.video" || true
  wait_until 60 has_pictures "$out/camera_tcp.video" || true
  sleep $(((seconds + 1) / 2))
  end_camera_stream udp
  end_camera_stream tcp
  sleep 1  # the direct connection's recording is to end behind the others
  stop_child "$direct" INT 20 || true
  hide_password
  for name in direct udp tcp; do
    decode_pictures "$out/camera_$name.video" "$out/camera_$name.md5" "$out/decode_camera_$name.log"
  done
  [[ -n $camera_url && -z $snapshot_url ]] || take_snapshot
  [[ -n $camera_url ]] || lose_camera
  note camera_log_secrets "$(grep -Fcf <(printf '%s\n' "$CAMERA_PASSWORD") "$out/log/gvxd.log" || true)"
  gvxctl_logged del-device --gateway "$port" --dev CAMERA || true
  [[ -n $camera_url ]] || stop_child "$camera" KILL 5 2>/dev/null || true
}

find_camera() {
  run_bounded 60 "$build/bin/gvxctl" search --gateway "$port" --plugin rtsp --range "$camera_host:$camera_port" --json \
    >"$out/camera_found.json" 2>>"$out/gvxctl_receivers.log" || true
}

check_camera() {
  local code=0 secret=$out/camera.secret
  (umask 077 && printf '%s\n' "$CAMERA_PASSWORD" >"$secret")
  "$build/bin/gvx-plugin-check" "$build/plugins/gvx_plugin_rtsp.so" --config "$out/conf/plugins/rtsp.json" --ip "$camera_host" \
    --port "$camera_port" --user "$camera_user" --password-file "$secret" --extend "$camera_extend" \
    >"$out/camera_check.log" 2>&1 || code=$?
  rm -f "$secret"
  note camera_check "$code"
}

add_camera() {
  local stored
  stored=$(GVX_ROOT=$out/root "$build/bin/gvxctl" secret encipher <<<"$CAMERA_PASSWORD") || return 1
  [[ $stored != *"$CAMERA_PASSWORD"* ]] || return 1
  run_bounded 30 "$build/bin/gvxctl" add-device --gateway "$port" --dev CAMERA --plugin rtsp --ip "$camera_host" \
    --port "$camera_port" --user "$camera_user" --password "$stored" --extend "$camera_extend" --json \
    >"$out/camera_added.json" 2>>"$out/gvxctl_receivers.log"
}

# ffmpeg names what it reads when it fails.
hide_password() {
  local file text
  for file in "$out/camera_probe.log" "$out/ffmpeg_camera.log"; do
    [[ -s $file ]] || continue
    text=$(<"$file")
    text=${text//"$CAMERA_PASSWORD"/***}
    printf '%s\n' "${text//"$quoted"/***}" >"$file"
  done
}

# The list keeps the password out of the command line.
record_directly() {
  local list=$out/camera.ffconcat
  quoted=$(python3 -c 'import os, urllib.parse; print(urllib.parse.quote(os.environ["CAMERA_PASSWORD"], safe=""))')
  (umask 077 && printf "ffconcat version 1.0\nfile 'rtsp://%s:%s@%s:%s%s'\noption rtsp_transport tcp\n" "$camera_user" \
    "$quoted" "$camera_host" "$camera_port" "$camera_path" >"$list")
  camera_codec=$(run_bounded 30 ffprobe -v error -protocol_whitelist file,rtp,tcp,udp,rtsp -f concat -safe 0 \
    -select_streams v:0 -show_entries stream=codec_name -of csv=p=0 "$list" 2>"$out/camera_probe.log" | head -n 1) || true
  hide_password
  [[ $camera_codec == h264 || $camera_codec == hevc ]] || die "ffmpeg cannot see the camera: $(tail -n 3 "$out/camera_probe.log")"
  ffmpeg -nostdin -y -v error -protocol_whitelist file,rtp,tcp,udp,rtsp -analyzeduration 1M -f concat -safe 0 -i "$list" \
    -map 0:v -c copy -flush_packets 1 -f "$camera_codec" "$out/camera_direct.video" >"$out/ffmpeg_camera.log" 2>&1 &
  direct=$!
  children+=("$direct")
  wait_until 30 has_pictures "$out/camera_direct.video" || camera_is_silent
  rm -f "$list"
}

camera_is_silent() {
  hide_password
  die "ffmpeg gets nothing: $(tail -n 3 "$out/ffmpeg_camera.log")"
}

has_pictures() { (($(stat -c %s "$1" 2>/dev/null || echo 0) > 20000)); }

# stream_camera NAME [--tcp]: a receiver, then the stream to it.
stream_camera() {
  local name=$1 to
  shift
  to=$(free_port "$name" 2)
  "$build/bin/gvxctl" receive --video-port "$to" "$@" --video "$out/camera_$name.video" >"$out/camera_$name.log" 2>&1 &
  receivers[$name]=$!
  children+=("$!")
  wait_until 20 is_bound "$name" "$to" || die "no receiver: $(cat "$out/camera_$name.log")"
  gvxctl_logged start-stream --gateway "$port" --dev CAMERA --service-id "camera-$name" --dst "127.0.0.1:$to" "$@" ||
    die "no stream of the camera: $(tail -n 5 "$out/gvxctl_receivers.log")"
}

end_camera_stream() {
  run_bounded 30 "$build/bin/gvxctl" stop-stream --gateway "$port" --dev CAMERA --service-id "camera-$1" --json \
    >"$out/camera_$1_sent.json" 2>>"$out/gvxctl_receivers.log" || true
  sleep 0.5
  stop_child "${receivers[$1]}" INT 10 || true
}

# A picture of the camera's web server, sent on to an HTTPS server of this run.
take_snapshot() {
  local folder=$out/pictures server
  say "the camera: a snapshot, sent to an HTTPS server"
  mkdir -p "$folder" "$out/conf/omu_portal"
  python3 -B "$repo/scripts/lib/picture_server.py" "$folder" >"$out/picture_server.log" 2>&1 &
  server=$!
  children+=("$server")
  wait_until 30 grep -q '^port ' "$out/picture_server.log" || die "no server for pictures: $(tail -n 5 "$out/picture_server.log")"
  cp "$folder/ca.pem" "$out/conf/omu_portal/cacert.pem"
  gvxctl_logged snapshot --gateway "$port" --dev CAMERA --seconds 30 \
    --url "https://localhost:$(sed -n 's/^port //p' "$out/picture_server.log")/pictures?FILESESSIONID=run" &&
    note camera_snapshot_sent 1
  ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of csv=p=0 "$folder/picture_1" \
    >"$out/camera_snapshot_size.log" 2>&1 || true
  stop_child "$server" TERM 5 || true
}

# Killed and started again: the alarm comes and goes, and the stream goes on by itself.
lose_camera() {
  local begin size lost=ALARM_IPC_NETWORK_INTERRUPT
  say "the camera: killed and started again"
  rm -f "$out/camera_udp.again"
  mv "$out/camera_udp.video" "$out/camera_udp.h264"
  stream_camera udp
  wait_until 60 has_pictures "$out/camera_udp.video" || true
  alarms=$out/gvxctl_camera_alarms.log
  listen_for_alarms
  stop_child "$camera" KILL 5 2>/dev/null || true
  wait_until 30 have_come "began  ${lost}_ON" SCU KSP && note camera_alarm_raised 1
  begin=$(milliseconds)
  run_camera
  note camera_start_ms $(($(milliseconds) - begin))
  size=$(stat -c %s "$out/camera_udp.video")
  begin=$(milliseconds)
  wait_until 60 has_grown "$out/camera_udp.video" $((size + 20000)) && note camera_back_ms $(($(milliseconds) - begin))
  wait_until 30 have_come "ended  ${lost}_OFF" SCU KSP && note camera_alarm_cleared 1
  stop_child "$listener" INT 10 || true
  end_camera_stream udp
  mv "$out/camera_udp.video" "$out/camera_back.h264"
}

has_grown() { (($(stat -c %s "$1") > $2)); }
