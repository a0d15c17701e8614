# shellcheck shell=bash
# What the scenarios in a booted copy share. Sourced, not run.

# shellcheck source=scripts/lib/common.sh
. /qd/lib/common.sh
# shellcheck source=scripts/lib/agent.sh
. /qd/lib/agent.sh
# shellcheck source=scripts/lib/server.sh
. /qd/lib/server.sh

kind=${1:-deb} # of package
# shellcheck source=tests/e2e/kinds.sh
. /qd/kinds.sh

server=/qd/server
state=/var/lib/qd/update
log=/tmp/agent_upd.log
failed=0

# quiet COMMAND...: prints what the command printed only if it fails; that ends the scenario.
quiet() {
  "$@" >/qd/quiet.out 2>&1 || {
    cat /qd/quiet.out
    die "failed: $*"
  }
}

# begin NAME: the next case, on a machine where no update has run before.
begin() {
  say "- $1"
  rm -f /tmp/agent_upd.log /tmp/upgrade_ovt.lock /tmp/*.deb /tmp/*.rpm "$server/access.log"
  server_stop "$server"
}

# expect WHAT ACTUAL EXPECTED
expect() {
  if [ "$2" = "$3" ]; then return; fi
  failed=1
  say "FAILED: $1" "(- expected, + found)"
  diff --unified=100 <(say "$3") <(say "$2") | tail -n +4 || true
}

# installed FILE [VERSION]: the agent of this package runs.
installed() {
  # shellcheck disable=SC2086
  quiet $force "$1"
  systemctl daemon-reload
  systemctl restart qdagent
  expect_agent active "${2:-7.2.1.4}"
}

# keep_package FILE: the package of version 7.2.1.4 lies where the way back looks for it.
keep_package() {
  local name=7.2.1.4.$kind
  rm -rf "$state"
  mkdir -p "$state"
  mkdir -m 700 "$state/keep"
  install -m 600 "$1" "$state/keep/$name"
  printf '[{"version": "7.2.1.4", "file": "%s", "sha256": "%s", "md5": "", "rollback": true, "since": ""}]' \
    "$name" "$(sha256sum <"$1" | cut -d' ' -f1)" >"$state/keep/kept.json"
  chmod 600 "$state/keep/kept.json"
}

# Ends the scenario with its status.
finish() { exit $failed; }

# offer VERSION PACKAGE: an update server offers this package.
offer() {
  mkdir -p "$server"
  server_offer "$server" "$1" "$2"
  server_start "$server"
}

# update INSTALLED-VERSION: one run of the program; its status is in $status, its output in /qd/run.out.
update() {
  status=0
  /qd/update "$(hex_address "$server_url")" "$1" >/qd/run.out 2>&1 || status=$?
}

# The level and text of each record of the log. Progress depends on how the bytes arrive; it is left out.
log_records() {
  sed -nE 's/^\[[-0-9: ]+\] - ROOT:(...) - \[ \([^)]*:[0-9]+\)\] - /\1 /p' "$log" | grep -v '^NFY Loading [0-9]*%$'
}

# expect_agent STATE VERSION: the service's state and the running version.
expect_agent() { expect "agent" "$(agent_state) $(agent_running_version)" "$1 $2"; }

# The records from the stop on, when every command has succeeded.
expect_commands_succeeded() {
  expect "records" "$(log_records | sed -n '/Stopping/,$p')" "NFY Agent Stopping ....
NFY Agent Stopped
NFY Upgrading agent ...'
NFY Agent Installed
NFY Agent Started
NFY Agent Update done"
}

# scene NAME OLD NEW [SETTING...]: OLD is installed and runs, the server offers NEW, and there is an update.toml.
scene() {
  begin "$1"
  installed "$2"
  offer 7.2.1.15 "$3"
  mkdir -p /etc/qd
  printf '%s\n' "${@:4}" >/etc/qd/update.toml
  before=$(agent_process)
}

agent_process() { systemctl show --value --property MainPID qdagent; }

# has RECORD: the log has it.
has() { log_records | grep -xF "$1" >/dev/null || expect "record" "$(log_records)" "$1"; }

# told FIELD: of the latest run's record.
told() { python3 -c "import json; print(json.load(open('$state/status.json'))['$1'])"; }

# expect_end "STATUS MESSAGE" PACKAGE PROCESS: what the run ended with, what is installed now, and whether the
# agent is the same process as before or has changed.
expect_end() {
  local now=same
  expect "status and message" "$status $(told message)" "$1"
  expect "package" "$(there)" "$2"
  if [ "$(agent_process)" != "$before" ]; then now=changed; fi
  expect "agent" "$(agent_state) $now" "active $3"
  show_records
}

# show_records: for who looks for the reason.
show_records() { if [ "$failed" = 1 ]; then log_records | tail -n 40; fi; }
