# gvxd with a configuration folder of its own.

write_configuration() {
  cp -r "$repo/conf" "$out/conf"
  sed -i "s/^GVX_LISTEN_IP=.*/GVX_LISTEN_IP=127.0.0.1/; s/^GVX_INTAKE_PORT=.*/GVX_INTAKE_PORT=$intake_port/" \
    "$out/conf/zvs_gvx.conf"
  mkdir -p "$out/root" "$out/log" "$out/conf/plugins"
  cp -r "$repo/conf/root/." "$out/root"
  cat >"$out/conf/plugins/file.json" <<JSON
{
  "media": {
    "demo": {"video": "$out/clip/clip.h264", "audio": "$out/clip/clip.alaw", "metadata": "$out/clip/metadata.json",
             "fps": 25, "loop": false},
    "demo_loop": {"video": "$out/clip/clip.h264", "audio": "$out/clip/clip.alaw", "fps": 25, "loop": true}
  }
}
JSON
}

start_gateway() {
  local first
  first=$(free_port tcp 2)  # listeners for links and for what devices push
  port=$first
  intake_port=$((first + 1))
  write_configuration
  say "starting gvxd on port $port"
  # In a session of its own, so that Ctrl-C ends the streaming and not the gateway.
  GVX_ROOT=$out/root setsid "$build/bin/gvxd" --config-dir "$out/conf" --plugin-dir "$build/plugins" \
    --listen-port "$port" --log-file "$out/log/gvxd.log" >"$out/gvxd_console.log" 2>&1 &
  gateway=$!
  children+=("$gateway")
  if ! wait_until 60 gateway_settled || is_gone "$gateway"; then
    die "gvxd did not start: $(cat "$out/gvxd_console.log")"
  fi
}

gateway_settled() { is_bound tcp "$port" || is_gone "$gateway"; }

stop_gateway() {
  local begin
  if is_gone "$gateway"; then
    wait "$gateway" || exit_code=$?
    note gateway_exit "early with ${exit_code:-0}"
    return
  fi
  say "stopping gvxd"
  begin=$(milliseconds)
  stop_child "$gateway" TERM 20 || true
  note gateway_stop_ms $(($(milliseconds) - begin))
  note gateway_exit "$exit_code"
}
