# Children, time limits, and what the script says and notes.

children=()
declare -A receivers=()

say() { printf '== %s\n' "$*"; }

die() {
  printf 'run.sh: %s\n' "$*" >&2
  exit 1
}

# A figure for the summary.
note() { printf '%s=%s\n' "$1" "$2" >>"$facts"; }

milliseconds() { echo $(($(date +%s%N) / 1000000)); }

# run_bounded SECONDS COMMAND...: in the foreground, ended when it takes longer.
run_bounded() { timeout --foreground --kill-after=5 "$@"; }

# wait_until SECONDS COMMAND...: false when the command has not succeeded by then.
wait_until() {
  local end=$(($(milliseconds) + $1 * 1000))
  shift
  until "$@"; do
    (($(milliseconds) < end)) || return 1
    sleep 0.05
  done
}

is_gone() { ! kill -0 "$1" 2>/dev/null; }

# stop_child PID SIGNAL SECONDS: false when the child had to be killed. Leaves the child's result in exit_code.
# shellcheck disable=SC2034
stop_child() {
  local stopped=true
  kill "-$2" "$1" 2>/dev/null || true
  if ! wait_until "$3" is_gone "$1"; then
    kill -KILL "$1" 2>/dev/null || true
    stopped=false
  fi
  exit_code=0
  wait "$1" || exit_code=$?
  $stopped
}

stop_children() {
  local pid
  for pid in "${children[@]}"; do
    is_gone "$pid" || stop_child "$pid" TERM 5 || true
  done
}
