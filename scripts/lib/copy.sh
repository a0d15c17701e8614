# shellcheck shell=bash
# A throwaway copy of this machine: an overlay over its root file system whose upper layer lives in memory,
# booted with systemd-nspawn. Sourced, not run.
#
# Everything happens in a mount and a process namespace that end with the calling script, however it ends:
# the mounts and the processes end with them, and the machine never sees either.

copy_refused=77 # status of copy_run where this machine cannot do it

# copy_run FILES SCRIPT [ARGUMENT...]: boots a copy in which the folder FILES is /qd, runs /qd/SCRIPT there as
# root and prints what it prints. Returns the script's status, or $copy_refused after one sentence that says
# why. The caller's clean-up calls stop_watched.
copy_run() {
  local reason
  reason=$(copy_obstacle)
  if [ -n "$reason" ]; then
    say "$reason"
    return "$copy_refused"
  fi
  run_watched KILL setpriv --pdeathsig KILL \
    unshare --mount --propagation private --pid --fork --kill-child --mount-proc \
    "$qd_lib/boot-copy" "$@"
}

# Why this machine cannot boot a copy of itself, in one sentence; nothing when it can.
copy_obstacle() {
  local tool
  if [ "$(id -u)" != 0 ]; then
    say "Booting a copy of the machine needs root."
    return
  fi
  for tool in systemd-nspawn unshare setpriv; do
    if ! command -v $tool >/dev/null; then
      say "Booting a copy of the machine needs $tool."
      return
    fi
  done
  # shellcheck disable=SC2016
  unshare --mount --propagation private --pid --fork --mount-proc sh -c '
    mount -t tmpfs tmpfs /mnt && mkdir /mnt/upper /mnt/work /mnt/root &&
    mknod /mnt/upper/mnt c 0 0 &&
    mount -t overlay -o lowerdir=/,upperdir=/mnt/upper,workdir=/mnt/work overlay /mnt/root &&
    test -x /mnt/root/lib/systemd/systemd -a -d /mnt/root/var/lib/dpkg' >/dev/null 2>&1 ||
    say "This machine does not allow the mounts and namespaces that booting a copy of it takes."
}
