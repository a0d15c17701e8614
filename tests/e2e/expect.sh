# shellcheck shell=bash
# What the scenarios in a booted copy share. Sourced, not run.

# shellcheck source=scripts/lib/common.sh
. /qd/lib/common.sh
# shellcheck source=scripts/lib/agent.sh
. /qd/lib/agent.sh
# shellcheck source=scripts/lib/server.sh
. /qd/lib/server.sh

server=/qd/server
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
