#!/usr/bin/env bash
# Nothing is stopped before everything fits: with an update.toml, on a Debian system with its own dpkg, apt and systemctl.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit
# shellcheck source=tests/e2e/fits.sh
. /qd/fits.sh || exit

# make_deb FILE CONTROL-LINE...: the agent, of $version, with these fields besides, or in place of its own.
version=7.2.1.15
make_deb() {
  make_agent_deb "$version" "$1"
  dpkg-deb --raw-extract "$1" /qd/tree
  local line
  for line in "${@:2}"; do
    sed -i "/^${line%%:*}:/d" /qd/tree/DEBIAN/control
    sed -i "1i $line" /qd/tree/DEBIAN/control
  done
  if [ -n "${conffile:-}" ]; then
    mkdir -p /qd/tree/etc
    echo "$conffile" >/qd/tree/etc/qdagent.conf
    echo /etc/qdagent.conf >/qd/tree/DEBIAN/conffiles
  fi
  dpkg-deb --build -Znone --root-owner-group /qd/tree "$1" >/dev/null
  rm -r /qd/tree
}

make_packages() {
  make_agent_deb 7.2.1.4 /qd/old.deb
  make_agent_deb 7.2.1.15 /qd/good.deb
  make_agent_deb 7.2.1.15 /qd/refusing.deb broken
  make_deb /qd/depends.deb "Depends: qd-nowhere (>= 2)"
  make_deb /qd/arch.deb "Architecture: s390x"
  make_deb /qd/conflict.deb "Conflicts: nginx-light"
  make_deb /qd/big.deb "Installed-Size: 99999999999"
  conffile=new make_deb /qd/conf.deb
  version=7.2.1.4 conffile=old make_deb /qd/oldconf.deb
  mkdir -p /qd/tree/DEBIAN
  printf '%s\n' "Package: qd-other" "Version: 1" "Architecture: all" "Maintainer: nobody <nobody@localhost>" \
    "Description: sample" >/qd/tree/DEBIAN/control
  dpkg-deb --build /qd/tree /qd/other.deb >/dev/null
}

installed() {
  quiet dpkg -i --force-downgrade --force-confnew "$1"
  systemctl restart qdagent
  expect_agent active 7.2.1.4
}
there() { dpkg-query --show --showformat='${db:Status-Abbrev}${Version}' qdagent; }

# Holds the lock as apt does, and says so.
hold_lock() {
  python3 -c '
import fcntl, os, struct, sys, time
fd = os.open("/var/lib/dpkg/lock-frontend", os.O_RDWR | os.O_CREAT, 0o640)
fcntl.lockf(fd, fcntl.LOCK_EX)
open("/qd/held", "w").close()
time.sleep(float(sys.argv[1]))' "$1" &
  holder=$!
  until [ -e /qd/held ]; do sleep 0.1; done
  rm /qd/held
}

lock_is_held() {
  scene "apt holds the lock for 20 s, and a second apt wants its turn" /qd/old.deb /qd/good.deb
  hold_lock 20
  (until grep -q 'Waiting for' $log 2>/dev/null; do sleep 0.2; done
    apt-get -y -o DPkg::Lock::Timeout=60 install /qd/other.deb >/qd/other.out 2>&1) &
  local second=$!
  update 7.2.1.4
  wait $second || expect "second apt" "$(cat /qd/other.out)" "a success"
  has "NFY Waiting for the package manager : python3 ($holder) holds /var/lib/dpkg/lock-frontend"
  expect_end "0 " "ii 7.2.1.15" changed
}

lock_stays() {
  scene "the lock is held to the end of the wait" /qd/old.deb /qd/good.deb 'install.lock_wait = "2s"'
  hold_lock 60
  update 7.2.1.4
  kill $holder
  expect_end "23 python3 ($holder) holds /var/lib/dpkg/lock-frontend, still after 2 s" "ii 7.2.1.4" same
}

# refused NAME PACKAGE REASON: the rehearsal sees it.
refused() {
  scene "$1" /qd/old.deb "$2"
  update 7.2.1.4
  expect_end "13 the installation would fail, so nothing was stopped: $3; there is now: 7.2.1.4" "ii 7.2.1.4" same
}

script_refuses() {
  scene "a script refuses, which nobody can foresee" /qd/old.deb /qd/refusing.deb
  update 7.2.1.4
  expect_end "13 the installation failed: new qdagent package pre-installation script subprocess returned error \
exit status 1; there is now: 7.2.1.4" "ii 7.2.1.4" changed
}

# conffiles SETTING CONTENT: the administrator has changed a configuration file, which the package brings anew.
conffiles() {
  scene "a changed configuration file: $1" /qd/oldconf.deb /qd/conf.deb "install.conffiles = '$1'"
  echo mine >/etc/qdagent.conf
  update 7.2.1.4
  expect_end "0 " "ii 7.2.1.15" changed
  expect "configuration file" "$(cat /etc/qdagent.conf)" "$2"
}

on_hold() {
  scene "a package on hold" /qd/old.deb /qd/good.deb
  quiet apt-mark hold qdagent
  update 7.2.1.4
  expect_end "21 the package qdagent is on hold; apt-mark unhold qdagent ends that" "hi 7.2.1.4" same
  quiet apt-mark unhold qdagent
}

no_room() {
  scene "no room for what is in the package" /qd/old.deb /qd/big.deb
  update 7.2.1.4
  expect "status" $status 22
  expect_kept "ii 7.2.1.4" same
}

half_done() {
  scene "dpkg has left another package half done" /qd/old.deb /qd/good.deb
  quiet dpkg --unpack /qd/other.deb
  update 7.2.1.4
  expect_end "0 " "ii 7.2.1.15" changed
  expect "the other package" "$(dpkg-query --show --showformat='${db:Status-Abbrev}' qd-other)" "ii "
}

without_apt() {
  mv /usr/bin/apt-get /usr/bin/apt-get.away
  refused "an unmet dependency, without apt" /qd/depends.deb \
    "Depends: qd-nowhere (>= 2), which is not installed"
  mv /usr/bin/apt-get.away /usr/bin/apt-get
}

make_packages
lock_is_held
lock_stays
refused "an unmet dependency" /qd/depends.deb "qdagent : Depends: qd-nowhere (>= 2) but it is not installable"
refused "another architecture" /qd/arch.deb "package architecture (s390x) does not match system (amd64)"
refused "a conflict" /qd/conflict.deb "qdagent conflicts with nginx-light"
script_refuses
conffiles keep mine
conffiles replace new
on_hold
no_room
half_done
without_apt
finish
