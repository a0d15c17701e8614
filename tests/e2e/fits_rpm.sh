#!/usr/bin/env bash
# Nothing is stopped before everything fits: with an update.toml, on a system without dpkg, with the real rpm and systemctl.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit
# shellcheck source=tests/e2e/fits.sh
. /qd/fits.sh || exit

# make_special FILE LINE...: version 7.2.1.15 of the agent with these lines in its spec file.
make_special() {
  local top=/qd/special
  mkdir -p $top
  agent_tree 7.2.1.15 $top/tree
  {
    printf '%s\n' "Name: qdagent" "Version: 7.2.1.15" "Release: 1" "Summary: sample" "License: none" \
      "AutoReqProv: no" "${@:2}" "%description" "Sample." "%install" \
      "mkdir -p %{buildroot}" "cp -a $top/tree/. %{buildroot}" "%files" "/*"
  } >$top/qdagent.spec
  rpmbuild -bb --quiet --define "_topdir $top" --define "_rpmfilename package.rpm" \
    --target "${architecture:-noarch}" $top/qdagent.spec >/dev/null
  mv $top/RPMS/package.rpm "$1"
  rm -r $top
}

make_packages() {
  make_agent_rpm 7.2.1.4 /qd/old.rpm
  make_agent_rpm 7.2.1.15 /qd/good.rpm
  make_special /qd/depends.rpm "Requires: qd-nowhere >= 2"
  architecture=s390x make_special /qd/arch.rpm
  make_special /qd/conflict.rpm "Conflicts: qd-other"
  make_special /qd/refusing.rpm "%pre -p <lua>" "error('no')"
  make_special /qd/ailing.rpm "%post -p <lua>" "error('no')"
  mkdir -p /qd/other/usr/share/qd-other
  make_rpm qd-other 1 /qd/other /qd/other.rpm
}

installed() {
  quiet rpm -U --force --oldpackage "$1"
  systemctl daemon-reload
  systemctl restart qdagent
  expect_agent active 7.2.1.4
}
there() { rpm -q --queryformat '%{VERSION}' qdagent; }

lock_file=$(rpm --eval '%{_rpmlock_path}')
cat >/qd/hold-lock <<END
#!/usr/bin/python3
import fcntl, os, sys, time
fd = os.open("$lock_file", os.O_RDWR | os.O_CREAT, 0o644)
fcntl.lockf(fd, fcntl.LOCK_EX)
open("/qd/held", "w").close()
time.sleep(float(sys.argv[1]))
END
chmod 755 /qd/hold-lock

lock_is_held() {
  scene "somebody holds the lock for 20 s" /qd/old.rpm /qd/good.rpm
  /qd/hold-lock 20 &
  local holder=$!
  until [ -e /qd/held ]; do sleep 0.1; done
  rm /qd/held
  update 7.2.1.4
  has "NFY Waiting for the package manager : hold-lock ($holder) holds $lock_file"
  expect_end "0 " 7.2.1.15 changed
}

# Taken while the agent is being stopped: it is tried again.
lock_is_lost() {
  scene "the lock is lost between the wait and the installation" /qd/old.rpm /qd/good.rpm
  mkdir -p /run/systemd/system/qdagent.service.d
  printf '[Service]\nExecStop=/bin/sh -c "systemd-run --quiet /qd/hold-lock 5; until [ -e /qd/held ]; do sleep 0.1; done"\n' \
    >/run/systemd/system/qdagent.service.d/lock.conf
  systemctl daemon-reload
  update 7.2.1.4
  expect_end "0 " 7.2.1.15 changed
  rm -r /run/systemd/system/qdagent.service.d /qd/held
  systemctl daemon-reload
}

# refused NAME PACKAGE REASON: the rehearsal sees it.
refused() {
  scene "$1" /qd/old.rpm "$2"
  update 7.2.1.4
  expect_end "13 the installation would fail, so nothing was stopped: $3; there is now: 7.2.1.4" 7.2.1.4 same
}

# script_fails NAME PACKAGE REASON VERSION: nobody can foresee it.
script_fails() {
  scene "$1" /qd/old.rpm "$2"
  update 7.2.1.4
  expect_end "13 the installation failed: $3; there is now: $4" "$4" changed
}

make_packages
rm /usr/bin/dpkg
lock_is_held
lock_is_lost
refused "an unmet dependency" /qd/depends.rpm "qd-nowhere >= 2 is needed by qdagent-7.2.1.15-1.noarch"
refused "another architecture" /qd/arch.rpm "package qdagent-7.2.1.15-1.s390x is intended for a different architecture"
quiet rpm -U /qd/other.rpm
refused "a conflict" /qd/conflict.rpm "qd-other conflicts with qdagent-7.2.1.15-1.noarch"
script_fails "a script refuses" /qd/refusing.rpm \
  "error: qdagent-7.2.1.4-1.noarch: erase skipped" 7.2.1.4
script_fails "a script fails after the installation" /qd/ailing.rpm \
  'error: lua script failed: [string "%post(qdagent-7.2.1.15-1.noarch)"]:1: no' 7.2.1.15
finish
