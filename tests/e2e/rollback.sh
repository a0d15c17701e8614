#!/usr/bin/env bash
# A version that ails is rolled back, with the system's own package manager and systemctl: rollback.sh KIND.
#
# Version 7.2.1.4 runs and is kept; the server offers one 7.2.1.15 after the other, each of which ails in its own way.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

old=$(whole 7.2.1.4)
ailing=/qd/ailing.$kind
case $kind in
  deb)
    refusal="installed qdagent package post-installation script subprocess returned error exit status 1"
    return_refusal="new qdagent package pre-installation script subprocess returned error exit status 1"
    cached=/var/cache/apt/archives/qdagent_7.2.1.4
    ;;
  rpm)
    refusal="warning: %post(qdagent-7.2.1.15-1.noarch) scriptlet failed, exit status 1"
    return_refusal="error: %prein(qdagent-7.2.1.4-1.noarch) scriptlet failed, exit status 1"
    cached=/var/cache/dnf/qd/packages/qdagent-7.2.1.4
    ;;
esac

# The agent runs `code`, Python, first, has `unit`, a line, among its unit's settings, and two configuration files that
# name the version; the later version has one more.
furnish() {
  printf 'if os.path.exists("/qd/stay-away"):\n    raise SystemExit(1)\n%s\n' "${code:-}" >/qd/code
  sed -i '/^import socket/r /qd/code' "$1/usr/sbin/qdagent"
  sed -i "/^.Service/a ${unit:-# as it was}" "$1/usr/lib/systemd/system/qdagent.service"
  mkdir -p "$1/etc/qdagent"
  say "of $2" | tee "$1/etc/qdagent/ours" >"$1/etc/qdagent/theirs"
  [ "$2" != 7.2.1.15 ] || say "of $2" >"$1/etc/qdagent/new"
}

# The records and the package database lie on a disk of their own, with little room.
small_disk() {
  mkdir -p /qd/disk /var/lib/qd
  mount -t tmpfs -o size=$(($(du -sm "$database" | cut -f1) + 90))m tmpfs /qd/disk
  cp -a "$database" /qd/disk/database
  mkdir /qd/disk/qd
  mount --bind /qd/disk/database "$database"
  mount --bind /qd/disk/qd /var/lib/qd
}

# settings SETTLE [CHECK]: what the administrator asks for; CHECK is what a check does of an agent but 7.2.1.4.
settings() {
  mkdir -p /etc/qd/update.d/health
  printf '%s\n' "install.reserve = '1MiB'" "[health]" "settle = '$1'" "timeout = '9s'" >/etc/qd/update.toml
  printf '#!/bin/sh\ngrep -qx 7.2.1.4 /run/qdagent/version || { %s; }\n' "${2:-true}" >/etc/qd/update.d/health/version
  chmod 755 /etc/qd/update.d/health/version
}

first_update() {
  begin "a good update, whose package is kept"
  settings 2s
  offer 7.2.1.4 "/qd/old.$kind"
  update 7.2.1.3
  expect "status and message" "$status $(told message)" "0 "
  say "the administrator's" >/etc/qdagent/ours
  expect_old
}

# ails NAME SETTLE CHECK [CODE [UNIT-LINE [SCRIPT]]]: one run to what is made of that.
ails() {
  begin "$1"
  settings "$2" "$3"
  code=${4:-} unit=${5:-} post=${6:-} make_agent 7.2.1.15 "$ailing"
  offer 7.2.1.15 "$ailing"
  update 7.2.1.4
}

expect_old() {
  expect "package" "$(there)" "$old"
  expect_agent active 7.2.1.4
  expect "configuration files" "$(cat /etc/qdagent/{ours,theirs,new} 2>&-)" "the administrator's
of 7.2.1.4"
  show_records
}

# rolled_back NAME AILMENT SETTLE CHECK [CODE ...]: the run ends with 26, the next one with 25.
rolled_back() {
  ails "$1" "${@:3}"
  expect "status and message" "$status $(told message)" "26 7.2.1.15 ails: $2; 7.2.1.4 was put back, and is healthy"
  expect_old
  expect "journal" "$(ls $state/keep/*.journal)" $state/keep/7.2.1.15.journal
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
  rolled_back "a script fails after the installation" "the installation failed: $refusal" 2s true "" "" "exit 1"
}

# What apt has a list of it knows the digest of.
listed() {
  install -D "$1" /qd/apt/qdagent.deb
  {
    dpkg-deb --field "$1"
    printf '%s: %s\n' Filename ./qdagent.deb Size "$(stat -c %s "$1")" SHA256 "$(sha256sum "$1" | cut -d' ' -f1)"
  } >/qd/apt/Packages
  say "deb [trusted=yes] file:/qd/apt ./" >/etc/apt/sources.list.d/qd.list
  quiet apt-get update -o Dir::Etc::SourceList=/etc/apt/sources.list.d/qd.list -o Dir::Etc::SourceParts=-
}

# Nothing is kept, but the package lies in the package manager's cache, among packages of the same version that are
# not what is installed.
cached() {
  local other=/qd/other.$kind
  [ "$kind" != deb ] || listed "/qd/old.$kind"
  rm -r $state/keep
  mkdir -p "${cached%/*}"
  code="import sys" make_agent 7.2.1.4 "$other"
  cp "$other" "$cached-a.$kind"
  cp "/qd/old.$kind" "$cached-b.$kind"
  cp "$other" "$cached-c.$kind"
  rolled_back "what is put back comes from the package manager's cache" "the agent could not be started" 2s true \
    "raise SystemExit(1)"
  has "NFY Found in the package manager's cache : $cached-b.$kind"
}

# not_rolled_back NAME MESSAGE THERE AGENT SETTLE CHECK [CODE ...]: the run ends with 27.
not_rolled_back() {
  ails "$1" "${@:5}"
  expect "status and message" "$status $(told message)" "27 $2"
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
  stays "the kept package refuses" "$return_refusal" "touch /qd/refuse"
  rm /qd/refuse
  installed "/qd/old.$kind"
  stays "the kept package is damaged" "the kept package of 7.2.1.4 is damaged" "echo >>$(echo $state/keep/7.2.1.4.*)"
}

# stays NAME WHY CHECK: a check fails after CHECK, the former version can't be put back, and the new one runs on.
stays() {
  not_rolled_back "$1" "the agent is unhealthy: check version ended with 1; the former version was not put back, since $2; \
there is now: 7.2.1.15; the agent runs; install a version that works by hand" \
    "$(whole 7.2.1.15)" "active 7.2.1.15" 1s "$3; exit 1"
}

make_agent 7.2.1.3 "/qd/older.$kind"
pre="! [ -e /qd/refuse ]" make_agent 7.2.1.4 "/qd/old.$kind"
small_disk
# shellcheck disable=SC2086
quiet $install "/qd/older.$kind"
first_update
rolled_back_all
cached
not_rolled_back_all
finish
