#!/usr/bin/env bash
# A run that dies while it replaces the agent, with the system's own systemd and package manager: whoever comes next
# finds an agent that runs, old or new, whole: recover.sh KIND [POINTS], at so many of which it is killed.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

# mark NAME SECONDS: what a script does that notes its process and takes its time.
mark() { say "echo \$\$ >/run/qd-script-$1; sleep $2"; }

# stage NAME SETTLE: the old version runs and is kept, the server offers the new one.
stage() {
  scene "$1" "/qd/old.$kind" "/qd/new.$kind" "health.settle = '$2'"
  keep_package "/qd/old.$kind"
  rm -f /run/qd-script-*
}

# dies NAME STEP [SCRIPT]: a run that is killed when it has come to the step and, where one is named, to the
# package's script; then that and the package manager die, too.
dies() {
  stage "$1" 2s
  /qd/update "$(hex_address "$server_url")" 7.2.1.4 >/qd/run.out 2>&1 &
  local run=$!
  until grep -q "\"step\": \"$2\"" $state/window.json 2>/dev/null && { [ $# = 2 ] || [ -s "/run/qd-script-$3" ]; }; do
    process_runs "$run" || die "the run is over: $(cat "$log")"
    sleep 0.1
  done
  kill -9 "$run"
  wait "$run" 2>/dev/null || true
  # shellcheck disable=SC2046
  [ $# = 2 ] || kill -9 $(pgrep -x "$manager") "$(cat "/run/qd-script-$3")"
}

# wait_for_timer: until there is no window any more, for a minute.
# shellcheck disable=SC2317 # `recovered` calls it
wait_for_timer() {
  for _ in {1..300}; do
    [ -e "$state/window.json" ] || return 0
    sleep 0.2
  done
}

# recovered STATUS VERSION [COMMAND...]: what it comes to once the command, `recover` unless given, was run.
recovered() {
  if [ $# = 2 ]; then set -- "$@" /qd/qd-update recover; fi
  "${@:3}" >/qd/recover.out 2>&1 || true
  expect "status" "$(told status)" "$1"
  expect "package" "$(there)" "$(whole "$2")"
  expect_agent active "$2"
  expect "window" "$(find $state -name 'window*')" ""
  expect "lines of the history" "$(wc -l <$state/history.jsonl)" 1
  sleep 0.5 # the timer's own service may be at its end
  expect "units" "$(systemctl list-units --all --plain --no-legend 'qd-update*')" ""
  show_records
}

# update_traced OPTION...: a run below strace.
update_traced() {
  (strace -qq -o /qd/trace "$@" /qd/update "$(hex_address "$server_url")" 7.2.1.4 || true) >/qd/run.out 2>&1
}

# points COUNT: so many system calls, "NAME NUMBER", of a good run's, from the moment that its window opens.
points() {
  update_traced -s 200
  awk -v count="$1" '{ name = $0; sub(/\(.*/, "", name); n[name]++ } /window\.json\./ { open = 1 }
    open && name ~ /^[a-z0-9_]+$/ && name != "exit_group" { point[++points] = name " " n[name] }
    END { for (i = 0; i < count; i++) print point[1 + int(i * points / count)] }' /qd/trace
}

# killed_at_calls COUNT
killed_at_calls() {
  stage "killed at a system call: the good run" 1s
  points "$1" >/qd/points
  while read -r name number; do
    stage "killed at $name $number" 1s
    update_traced -e "trace=$name" -e "inject=$name:signal=KILL:when=$number"
    /qd/qd-update recover >/qd/recover.out 2>&1 || true
    expect "window" "$(find $state -name 'window*')" ""
    expect "package and agent" "$(there) $(agent_state)" "$(whole "$(agent_running_version)") active"
    show_records
  done </qd/points
}

furnish() { echo "of $2" >"$1/usr/sbin/qdagent.data"; }

# make_packages: the old version and the new one, with the scripts that the variables say.
make_packages() {
  make_agent 7.2.1.4 "/qd/old.$kind"
  make_agent 7.2.1.15 "/qd/new.$kind"
}

pre=$(mark pre 1) post=$(mark post 2) gone=$(mark gone 2) make_packages
dies "the package manager works on, and the timer comes" install
recovered 0 7.2.1.15 wait_for_timer
slow=/run/systemd/system/qdagent.service.d/slow.conf # else it may have stopped before anybody looks
mkdir "${slow%/*}"
printf '[Service]\nExecStop=/bin/sleep 2\n' >$slow
dies "the agent is being stopped" stop
recovered 11 7.2.1.4
rm -r "${slow%/*}"
systemctl daemon-reload
dies "the package manager dies before it unpacks" install pre
recovered 26 7.2.1.4
dies "the package manager dies when it has unpacked" install gone
recovered 26 7.2.1.4
dies "the package manager dies when it configures" install post
# dpkg can complete that; rpm has both versions then.
if [ "$kind" = deb ]; then recovered 0 7.2.1.15; else recovered 26 7.2.1.4; fi

if [ "$kind" = rpm ]; then
  dies "the power took the bytes of a file that the database has" install
  while pgrep -x rpm >/dev/null; do sleep 0.1; done
  : >/usr/sbin/qdagent.data
  recovered 26 7.2.1.4
fi

make_packages
killed_at_calls "${2:-3}"
finish
