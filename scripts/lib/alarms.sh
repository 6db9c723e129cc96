# Alarms: one of a device, which somebody tells the intake of, and one of the gateway, whose log folder goes away.

# The alarms of the gateway's own start have gone to the demo's links; this one lists those that come from now on.
show_alarms() {
  local dev=CAM_alarm code=0
  say "alarms: a device's, then the gateway's own, which finds its log folder gone"
  alarms=$out/gvxctl_alarms.log
  gvxctl_logged add-device --gateway "$port" --dev "$dev" --extend '{"media":"demo"}' || code=1
  listen_for_alarms
  trigger_alarm "$dev" start --description "Paint on the dome." || code=1
  wait_until 15 have_come "began  ALARM_IPC_SHIELD_ON" SCU KSP || true
  trigger_alarm "$dev" stop || code=1
  wait_until 15 have_come "ended  ALARM_IPC_SHIELD_OFF" SCU KSP || true
  mv -T "$out/log" "$out/log.away"
  wait_until 15 have_come "began  ALARM_GVX_LOG_RECORD_FAIL_ON" OMU KSP || true
  mv -T "$out/log.away" "$out/log"
  wait_until 15 have_come "ended  ALARM_GVX_LOG_RECORD_FAIL_OFF" OMU KSP || true
  stop_child "$listener" INT 10 || true
  note alarms_exit "$exit_code"
  cat "$alarms"
  gvxctl_logged del-device --gateway "$port" --dev "$dev" || code=1
  note alarm_commands_failed "$code"
}

# Both links of the listener are there when that to OMU, the second, is open.
listen_for_alarms() {
  omu_links=$(count_omu_links)
  "$build/bin/gvxctl" alarm watch --gateway "$port" --seconds 120 >"$alarms" 2>"$out/gvxctl_alarms_errors.log" &
  listener=$!
  children+=("$listener")
  wait_until 15 has_omu_link || die "the links for alarms were not made: $(cat "$out/gvxctl_alarms_errors.log")"
}

count_omu_links() { grep -Fc '[Link opened]' <(grep -F 'link:OMU#001]' "$out/log/gvxd.log") || true; }

has_omu_link() { (($(count_omu_links) > omu_links)); }

# have_come ACTION_AND_TYPE TARGET...: that alarm has arrived for each target.
have_come() {
  local what=$1 target
  shift
  for target in "$@"; do
    grep -Fq "$target  $what " "$alarms" || return 1
  done
}

# trigger_alarm DEV ACTION [OPTION...]: of the device's first lens.
trigger_alarm() {
  gvxctl_logged alarm trigger --intake "$intake_port" --device "$1" --channel 0 --code shield --action "$2" "${@:3}"
}
