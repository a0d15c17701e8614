# shellcheck shell=bash
# A run that dies while it replaces the agent, on a system with its own systemd and package manager: whoever comes
# next finds an agent that runs, old or new, whole. What the scenes with dpkg and with rpm share; sourced, not run.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit
# shellcheck source=tests/e2e/fits.sh
. /qd/fits.sh || exit

state=/var/lib/qd/update

# kept PACKAGE NAME: it lies where the way back looks for it.
kept() {
  rm -rf "$state"
  mkdir -p "$state"
  mkdir -m 700 "$state/keep"
  install -m 600 "$1" "$state/keep/$2"
  printf '[{"version": "7.2.1.4", "file": "%s", "sha256": "%s", "md5": "", "rollback": true, "since": ""}]' \
    "$2" "$(sha256sum <"$1" | cut -d' ' -f1)" >"$state/keep/kept.json"
  chmod 600 "$state/keep/kept.json"
}

# killed NAME OLD NEW STEP [SCRIPT]: a run that is killed when it has come to the step and, where one is named, to the
# package's script; then that and the package manager die, too. There are `runs SCRIPT` and `end SCRIPT` for it.
killed() {
  scene "$1" "$2" "$3" 'health.settle = "2s"'
  /qd/update "$(hex_address "$server_url")" 7.2.1.4 >/qd/run.out 2>&1 &
  local run=$!
  until grep -q "\"step\": \"$4\"" "$state/window.json" 2>/dev/null && { [ $# = 4 ] || runs "$5"; }; do
    process_runs "$run" || die "the run is over: $(cat "$log")"
    sleep 0.02
  done
  kill -9 "$run"
  wait "$run" 2>/dev/null || true
  [ $# = 4 ] || end "$5"
}

# wait_for_timer: until there is no window any more, for a minute.
wait_for_timer() {
  for _ in {1..300}; do
    [ -e "$state"/window.json ] || return 0
    sleep 0.2
  done
}

# points COUNT NEW: so many system calls, "NAME NUMBER", of a good run's, from the moment that its window opens.
points() {
  update_traced -s 200
  awk -v count="$1" '{ name = $0; sub(/\(.*/, "", name); n[name]++ } /window\.json\./ { open = 1 }
    open && name ~ /^[a-z0-9_]+$/ && name != "exit_group" { point[++points] = name " " n[name] }
    END { for (i = 0; i < count; i++) print point[1 + int(i * points / count)] }' /qd/trace
}

# update_traced OPTION...: a run below strace.
update_traced() {
  (strace -qq -o /qd/trace "$@" /qd/update "$(hex_address "$server_url")" 7.2.1.4 || true) >/qd/run.out 2>&1
}

# killed_at_calls COUNT OLD NEW
killed_at_calls() {
  scene "killed at a system call: the good run" "$2" "$3" 'health.settle = "1s"'
  points "$1" >/qd/points
  while read -r name number; do
    scene "killed at $name $number" "$2" "$3" 'health.settle = "1s"'
    update_traced -e "trace=$name" -e "inject=$name:signal=KILL:when=$number"
    /qd/qd-update recover >/qd/recover.out 2>&1 || true
    expect "window" "$(find "$state" -name 'window*')" ""
    expect "package and agent" "$(there) $(agent_state)" "$(whole "$(agent_running_version)") active"
    if [ "$failed" = 1 ]; then log_records | tail -n 40; fi
  done </qd/points
}

# recovered STATUS PACKAGE VERSION [COMMAND...]: what it comes to once the command, `recover` unless given, was run.
recovered() {
  local record
  if [ $# = 3 ]; then set -- "$@" /qd/qd-update recover; fi
  "${@:4}" >/qd/recover.out 2>&1 || true
  record=$(python3 -c 'import json; print(json.load(open("/var/lib/qd/update/status.json"))["status"])')
  expect "status" "$record" "$1"
  expect "package" "$(there)" "$2"
  expect_agent active "$3"
  expect "window" "$(find "$state" -name 'window*')" ""
  expect "lines of the history" "$(wc -l <"$state/history.jsonl")" 1
  sleep 0.5 # the timer's own service may be at its end
  expect "units" "$(systemctl list-units --all --plain --no-legend 'qd-update*')" ""
  if [ "$failed" = 1 ]; then log_records | tail -n 40; fi
}
