# shellcheck shell=bash
# What the scripts share: messages, root, the work folder. Sourced, not run.

set -eu

qd_lib=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck disable=SC2034 # for those that source this
qd_top=${qd_lib%/scripts/lib}

say() { printf '%s\n' "$*"; }

die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# as_root COMMAND...: runs the command as root, through sudo when this is another user.
as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    die "needs root or sudo: $*"
  fi
}

# make_work_folder NAME: a folder of this run alone, in $work. Its owner removes it with remove_work_folder.
make_work_folder() {
  work=$(mktemp -d "${TMPDIR:-/tmp}/qd-$1.XXXXXX")
  chmod 755 "$work" # the web server's workers read below it
}

# The same in memory, where there is room for 5 GiB.
make_work_folder_in_memory() {
  local free
  free=$(df --output=avail /dev/shm 2>/dev/null | tail -n 1)
  if [ "${free:-0}" -gt $((5 << 20)) ]; then
    TMPDIR=/dev/shm make_work_folder "$1"
  else
    make_work_folder "$1"
  fi
}

remove_work_folder() {
  [ -z "${work:-}" ] || rm -rf --one-file-system "$work"
  work=
}

# on_exit FUNCTION: runs the function when the script ends, also when it is interrupted.
on_exit() {
  # shellcheck disable=SC2064
  trap "$1" EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

# run_watched SIGNAL COMMAND...: runs the command and returns its status. Unlike a plain call it lets a signal
# end the script at once; stop_watched, from the script's clean-up, then ends the command with SIGNAL.
run_watched() {
  local status=0
  watched_signal=$1
  "${@:2}" &
  watched=$!
  wait "$watched" || status=$?
  watched=
  return "$status"
}

stop_watched() {
  [ -n "${watched:-}" ] || return 0
  kill "-$watched_signal" "$watched" 2>/dev/null || true
  wait "$watched" 2>/dev/null || true
}

# process_runs PID: a process that has ended but was not reaped yet does not run.
process_runs() { grep -q '^State:[[:space:]]*[DIRSTt]' "/proc/${1:-none}/status" 2>/dev/null; }

wait_for_end() {
  while process_runs "$1"; do sleep 0.02; done
}
