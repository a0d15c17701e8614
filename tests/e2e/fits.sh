#!/usr/bin/env bash
# Nothing is stopped before everything fits: with an update.toml, with the system's own package manager and systemctl.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

old=/qd/old.$kind
good=/qd/good.$kind
other=/qd/other.$kind
case $kind in
  deb)
    install_other() { apt-get -y -o DPkg::Lock::Timeout=60 install "$other"; }
    needs="Depends: qd-nowhere (>= 2)"
    unmet="qdagent : Depends: qd-nowhere (>= 2) but it is not installable"
    foreign="package architecture (s390x) does not match system (amd64)"
    conflicting="qdagent conflicts with qd-other"
    refusal="new qdagent package pre-installation script subprocess returned error exit status 1"
    ;;
  rpm)
    install_other() { until rpm -U --force "$other"; do sleep 0.1; done; }
    needs="Requires: qd-nowhere >= 2"
    unmet="qd-nowhere >= 2 is needed by qdagent-7.2.1.15-1.noarch"
    foreign="package qdagent-7.2.1.15-1.s390x is intended for a different architecture"
    conflicting="qd-other conflicts with qdagent-7.2.1.15-1.noarch"
    refusal="error: %prein(qdagent-7.2.1.15-1.noarch) scriptlet failed, exit status 1"
    ;;
esac

make_packages() {
  make_agent 7.2.1.4 "$old"
  make_agent 7.2.1.15 "$good"
  make_agent 7.2.1.15 "/qd/depends.$kind" "$needs"
  make_agent 7.2.1.15 "/qd/conflict.$kind" "Conflicts: qd-other"
  architecture=s390x make_agent 7.2.1.15 "/qd/foreign.$kind"
  pre="exit 1" make_agent 7.2.1.15 "/qd/refusing.$kind"
  mkdir -p /qd/other/usr/share/qd-other
  : >/qd/other/usr/share/qd-other/file
  pack qd-other 1 /qd/other "$other"
}

cat >/qd/hold-lock <<END
#!/usr/bin/python3
# Holds the lock as a package manager does, and says so.
import fcntl, os, sys, time
fd = os.open("$lock_file", os.O_RDWR | os.O_CREAT, 0o640)
fcntl.lockf(fd, fcntl.LOCK_EX)
open("/qd/held", "w").close()
time.sleep(float(sys.argv[1]))
END
chmod 755 /qd/hold-lock

hold_lock() {
  /qd/hold-lock "$1" &
  holder=$!
  until [ -e /qd/held ]; do sleep 0.1; done
  rm /qd/held
}

lock_is_held() {
  scene "somebody holds the lock for 20 s, and a second installation wants its turn" "$old" "$good"
  hold_lock 20
  (until grep -q 'Waiting for' $log 2>/dev/null; do sleep 0.2; done
    install_other >/qd/other.out 2>&1) &
  local second=$!
  update 7.2.1.4
  wait $second || expect "the second installation" "$(cat /qd/other.out)" "a success"
  has "NFY Waiting for the package manager : hold-lock ($holder) holds $lock_file"
  expect_end "0 " "$(whole 7.2.1.15)" changed
}

lock_stays() {
  scene "the lock is held to the end of the wait" "$old" "$good" 'install.lock_wait = "2s"'
  hold_lock 60
  update 7.2.1.4
  kill $holder
  expect_end "23 hold-lock ($holder) holds $lock_file, still after 2 s" "$(whole 7.2.1.4)" same
}

# refused NAME PACKAGE REASON: the rehearsal sees it.
refused() {
  scene "$1" "$old" "/qd/$2.$kind"
  update 7.2.1.4
  expect_end "13 the installation would fail, so nothing was stopped: $3; there is now: 7.2.1.4" \
    "$(whole 7.2.1.4)" same
}

# script_fails NAME PACKAGE REASON VERSION: nobody can foresee it.
script_fails() {
  scene "$1" "$old" "/qd/$2.$kind"
  update 7.2.1.4
  expect_end "13 the installation failed: $3; there is now: $4" "$(whole "$4")" changed
}

# conffiles SETTING CONTENT: the administrator has changed a configuration file, which the package brings anew.
conffiles() {
  scene "a changed configuration file: $1" /qd/oldconf.deb /qd/conf.deb "install.conffiles = '$1'"
  echo mine >/etc/qdagent.conf
  update 7.2.1.4
  expect_end "0 " "ii 7.2.1.15" changed
  expect "configuration file" "$(cat /etc/qdagent.conf)" "$2"
}

# on_hold COMMAND THERE: what COMMAND ends.
on_hold() {
  scene "a package on hold" "$old" "$good"
  hold
  update 7.2.1.4
  expect_end "21 the package qdagent is on hold; $1 ends that" "$2" same
}

no_room() {
  scene "no room for what is in the package" "$old" /qd/big.deb
  update 7.2.1.4
  expect_end "22 $(told message)" "ii 7.2.1.4" same # what is free differs
}

# On a file system of its own, to which nobody downloads.
no_room_for_the_database() {
  mkdir /qd/database
  mount -t tmpfs -o size=$(($(du -sm "$database" | cut -f1) + 20))m tmpfs /qd/database
  cp -a "$database/." /qd/database
  mount --bind /qd/database "$database"
  scene "no room beside the package database" "$old" "$good"
  update 7.2.1.4
  expect_end "22 $(told message)" "$(whole 7.2.1.4)" same
  umount "$database"
}

half_done() {
  scene "dpkg has left another package half done" "$old" "$good"
  quiet dpkg --unpack "$other"
  update 7.2.1.4
  expect_end "0 " "ii 7.2.1.15" changed
  expect "the other package" "$(dpkg-query --show --showformat='${db:Status-Abbrev}' qd-other)" "ii "
}

# Taken while the agent is being stopped: it is tried again.
lock_is_lost() {
  scene "the lock is lost between the wait and the installation" "$old" "$good"
  mkdir -p /run/systemd/system/qdagent.service.d
  printf '[Service]\nExecStop=/bin/sh -c "systemd-run --quiet /qd/hold-lock 5; until [ -e /qd/held ]; do sleep 0.1; done"\n' \
    >/run/systemd/system/qdagent.service.d/lock.conf
  systemctl daemon-reload
  update 7.2.1.4
  expect_end "0 " "$(whole 7.2.1.15)" changed
  rm -r /run/systemd/system/qdagent.service.d /qd/held
  systemctl daemon-reload
}

only_deb() {
  make_agent 7.2.1.15 /qd/big.deb "Installed-Size: 99999999999"
  furnish() { install -D <(say "of $2") "$1/etc/qdagent.conf"; }
  make_agent 7.2.1.4 /qd/oldconf.deb
  make_agent 7.2.1.15 /qd/conf.deb
  conffiles keep mine
  conffiles replace "of 7.2.1.15"
  hold() { quiet apt-mark hold qdagent; }
  on_hold "apt-mark unhold qdagent" "hi 7.2.1.4"
  quiet apt-mark unhold qdagent
  no_room
  half_done
  mv /usr/bin/apt-get /usr/bin/apt-get.away
  refused "an unmet dependency, without apt" depends "Depends: qd-nowhere (>= 2), which is not installed"
}

only_rpm() {
  lua="error('no')" make_agent 7.2.1.15 /qd/ailing.rpm
  lock_is_lost
  hold() { install -D <(say "qdagent-0:7.2.1.4-1.*") /etc/dnf/plugins/versionlock.list; }
  on_hold "dnf versionlock delete qdagent" "$(whole 7.2.1.4)"
  rm /etc/dnf/plugins/versionlock.list
  script_fails "a script fails after the installation" ailing \
    'error: lua script failed: [string "%post(qdagent-7.2.1.15-1.noarch)"]:1: no' 7.2.1.15
}

make_packages
lock_is_held
lock_stays
refused "an unmet dependency" depends "$unmet"
refused "another architecture" foreign "$foreign"
refused "a conflict" conflict "$conflicting"
script_fails "a script refuses" refusing "$refusal" 7.2.1.4
no_room_for_the_database
if [ "$kind" = deb ]; then only_deb; else only_rpm; fi
finish
