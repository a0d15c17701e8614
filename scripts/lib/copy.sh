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
  local status=0
  remove_copy_groups
  run_watched KILL boot_in_own_groups "$@" || status=$?
  remove_copy_groups
  return "$status"
}

boot_in_own_groups() {
  local folder
  for folder in $(copy_group_folders); do
    if mkdir "$folder/qd-copy-$BASHPID" 2>/dev/null; then echo 0 >"$folder/qd-copy-$BASHPID/cgroup.procs"; fi
  done
  exec setpriv --pdeathsig KILL \
    unshare --mount --propagation private --pid --fork --kill-child --mount-proc \
    "$qd_lib/boot-copy" "$@"
}

# Each copy boots in control groups of its own, qd-copy-PID. A copy's systemd keeps its services in groups below
# those it was started in: two copies would share the groups of services of one name, and where one
# starts the agent while the other stops it, the stop waits for both until it times out.
#
# copy_group_folders: this process's groups in the hierarchies that systemd keeps services in.
copy_group_folders() {
  group_folder "0::" --types cgroup2
  group_folder "[0-9]*:name=systemd:" --types cgroup --options name=systemd
}

# group_folder LINE MOUNT...: LINE begins the hierarchy's line in /proc/self/cgroup, MOUNT finds its mount.
group_folder() {
  local mount
  mount=$(findmnt --noheadings --first-only --output TARGET "${@:2}") || return 0
  sed -n "s,^$1,$mount,p" /proc/self/cgroup | sed 's,/$,,'
}

# remove_copy_groups: those of copies that have ended.
remove_copy_groups() {
  local folder group
  for folder in $(copy_group_folders); do
    for group in "$folder"/qd-copy-*; do
      if [ -d "$group" ] && [ ! -d "/proc/${group##*-}" ]; then
        find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || true
      fi
    done
  done
}

# Why this machine cannot boot a copy of itself, in one sentence; nothing when it can.
copy_obstacle() {
  local tool
  if [ "$(id -u)" != 0 ]; then
    say "Booting a copy of the machine needs root."
    return
  fi
  for tool in systemd-nspawn unshare setpriv; do
    if ! command -v "$tool" >/dev/null; then
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
