# shellcheck shell=bash disable=SC2154
# What the scenes of fits_debian.sh and fits_rpm.sh share. Sourced, not run.

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

# expect_end "STATUS MESSAGE" PACKAGE PROCESS: what the run ended with, what is installed now, and whether the
# agent is the same process as before or has changed.
expect_end() {
  expect "status and message" "$status $(message)" "$1"
  expect_kept "$2" "$3"
}
expect_kept() {
  expect "package" "$(there)" "$1"
  local now=same
  if [ "$(agent_process)" != "$before" ]; then now=changed; fi
  expect "agent" "$(agent_state) $now" "active $2"
  if [ "$failed" = 1 ]; then log_records | tail -n 30; fi
}
message() {
  python3 -c 'import json; print(json.load(open("/var/lib/qd/update/status.json"))["message"])'
}
