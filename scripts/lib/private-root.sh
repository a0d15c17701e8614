# shellcheck shell=bash
# The way without booting: the real dpkg on a private root folder, and a stand-in for systemctl that runs the
# sample agent as a process. Sourced, not run. It changes nothing outside its folder.

# private_root_enter FOLDER: prepares FOLDER and makes it what this process and its children work on.
private_root_enter() {
  export QD_PRIVATE_ROOT=$1
  mkdir -p "$1/root/var/lib/dpkg/info" "$1/root/var/lib/dpkg/updates" "$1/run"
  mkdir -m 700 "$1/tmp"
  : >"$1/root/var/lib/dpkg/status"
  : >"$1/root/var/lib/dpkg/available"
  agent_run_folder=$1/run/qdagent
  export PATH="$qd_lib/private-root:$PATH" TMPDIR="$1/tmp"
  export QD_AGENT_INSTANCE="private-root-$$" # an instance nobody has: the log goes to TMPDIR
}

# Ends the agent that may still run there.
private_root_leave() { [ -z "${QD_PRIVATE_ROOT:-}" ] || systemctl stop qdagent; }
