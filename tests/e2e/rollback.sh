# shellcheck shell=bash disable=SC2154
# What the scenes of rollback_debian.sh and rollback_rpm.sh share. Sourced, not run.
#
# Version 7.2.1.4 runs and is kept; the server offers one 7.2.1.15 after the other, each of which ails in its own way.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit
# shellcheck source=tests/e2e/fits.sh
. /qd/fits.sh || exit

# ailing_tree VERSION FOLDER [CODE [UNIT-LINE]]: the agent, which runs this Python code first, with two configuration
# files that name the version, and this line among its unit's settings.
ailing_tree() {
  agent_tree "$1" "$2"
  printf 'if os.path.exists("/qd/stay-away"):\n    raise SystemExit(1)\n%s\n' "${3:-}" >/qd/code
  sed -i '/^import socket/r /qd/code' "$2/usr/sbin/qdagent"
  if [ -n "${4:-}" ]; then sed -i "/^.Service/a $4" "$2/usr/lib/systemd/system/qdagent.service"; fi
  mkdir -p "$2/etc/qdagent"
  say "of $1" | tee "$2/etc/qdagent/ours" >"$2/etc/qdagent/theirs"
}

# small_disk DATABASE: the records and the package database lie on a disk of their own, with little room.
small_disk() {
  mkdir -p /qd/disk /var/lib/qd
  mount -t tmpfs -o size=$(($(du -sm "$1" | cut -f1) + 90))m tmpfs /qd/disk
  cp -a "$1" /qd/disk/database
  mkdir /qd/disk/qd
  mount --bind /qd/disk/database "$1"
  mount --bind /qd/disk/qd /var/lib/qd
}

# settings SETTLE [CHECK]: what the administrator asks for; CHECK is what a check does of an agent but 7.2.1.4.
settings() {
  mkdir -p /etc/qd/update.d/health
  printf '%s\n' "install.reserve = '1MiB'" "[health]" "settle = '$1'" "timeout = '9s'" >/etc/qd/update.toml
  printf '#!/bin/sh\ngrep -qx 7.2.1.4 /run/qdagent/version || { %s; }\n' "${2:-true}" >/etc/qd/update.d/health/version
  chmod 755 /etc/qd/update.d/health/version
}

# first_update OLDER PACKAGE: 7.2.1.4 comes as an update, and is kept for that.
first_update() {
  begin "a good update, whose package is kept"
  settings 2s
  offer 7.2.1.4 "$2"
  update "$1"
  expect "status and message" "$status $(message)" "0 "
  say "the administrator's" >/etc/qdagent/ours
  expect_old
}

# ails NAME SETTLE CHECK PACKAGE-ARGUMENT...: one run to what make_ailing makes of the arguments.
ails() {
  begin "$1"
  settings "$2" "$3"
  make_ailing "${@:4}"
  offer 7.2.1.15 "$ailing"
  update 7.2.1.4
}

expect_old() {
  expect "package" "$(there)" "$old"
  expect_agent active 7.2.1.4
  expect "configuration files" "$(cat /etc/qdagent/{ours,theirs})" "the administrator's
of 7.2.1.4"
  if [ "$failed" = 1 ]; then log_records | tail -n 40; fi
}

# rolled_back NAME AILMENT SETTLE CHECK PACKAGE-ARGUMENT...: the run ends with 26, the next one with 25.
rolled_back() {
  ails "$1" "${@:3}"
  expect "status and message" "$status $(message)" "26 7.2.1.15 ails: $2; 7.2.1.4 was put back, and is healthy"
  expect_old
  expect "journal" "$(ls /var/lib/qd/update/keep/*.journal)" /var/lib/qd/update/keep/7.2.1.15.journal
  update 7.2.1.4
  expect "status of the next run, and how often the package was asked for" \
    "$status $(grep -c "GET .*/${ailing##*/} " $server/access.log)" "25 1"
}

rolled_back_all() {
  rolled_back "does not start" "the agent could not be started" 2s true "raise SystemExit(1)"
  rolled_back "dies after 5 s" "its unit is failed (failed)" 8s true "signal.alarm(5)"
  rolled_back "fails its check" "check version ended with 3" 1s "exit 3"
  rolled_back "hangs its check" "check version took more than 9 s and was ended" 1s "sleep 60"
  rolled_back "its unit never gets ready" "its unit is still activating after 9 s" 2s true \
    'del os.environ["NOTIFY_SOCKET"]' TimeoutStartSec=infinity
  rolled_back "fills the disk when it starts" "the agent could not be started" 2s true \
    'os.system("head -c 1G /dev/zero >/var/lib/qd/fill"); raise SystemExit(1)'
  rm /var/lib/qd/fill
  rolled_back "a script fails after the installation" "$script_failure" 2s true "" "" "exit 1"
}

# cached FILE ENDING: nothing is kept, but FILE lies in the package manager's cache, among packages of the same
# version that are not what is installed.
cached() {
  rm -r /var/lib/qd/update/keep
  make_package 7.2.1.4 /qd/other "import sys"
  cp /qd/other "$1-a$2"
  cp "/qd/old$2" "$1-b$2"
  cp /qd/other "$1-c$2"
  rolled_back "what is put back comes from the package manager's cache" "the agent could not be started" 2s true \
    "raise SystemExit(1)"
  has "NFY Found in the package manager's cache : $1-b$2"
}

# not_rolled_back NAME MESSAGE THERE AGENT SETTLE CHECK PACKAGE-ARGUMENT...: the run ends with 27.
not_rolled_back() {
  ails "$1" "${@:5}"
  expect "status and message" "$status $(message)" "27 $2"
  expect "package and agent" "$(there) $(agent_state) $(agent_running_version)" "$3 $4"
}

not_rolled_back_all() {
  not_rolled_back "neither does the old version start" \
    "7.2.1.15 ails: the agent could not be started; 7.2.1.4 was put back, and ails as well: it could not be started; \
see \`journalctl -u qdagent\`, then install a version that works" \
    "$old" "failed " 2s true 'open("/qd/stay-away", "w").close(); raise SystemExit(1)'
  rm /qd/stay-away
  systemctl reset-failed qdagent
  systemctl start qdagent
  not_rolled_back "the kept package is damaged" \
    "the agent is unhealthy: check version ended with 1; the former version was not put back, since the kept package \
of 7.2.1.4 is damaged; there is now: 7.2.1.15; the agent runs; install a version that works by hand" \
    "$new" "active 7.2.1.15" 1s "echo >>$(echo /var/lib/qd/update/keep/7.2.1.4.*); exit 1"
}
