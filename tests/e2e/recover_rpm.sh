#!/usr/bin/env bash
# Runs that die while they replace the agent, on a system without dpkg, with the real rpm and systemd.

# shellcheck source=tests/e2e/recover.sh
. /qd/recover.sh || exit

# slow_rpm VERSION FILE: an agent whose script takes its time, after the installation, when the database has both.
slow_rpm() {
  local top=/qd/slow
  mkdir -p $top
  agent_tree "$1" $top/tree
  printf '%s\n' "Name: qdagent" "Version: $1" "Release: 1" "Summary: sample" "License: none" "BuildArch: noarch" \
    "AutoReqProv: no" "%description" "Sample." "%install" "cp -a $top/tree/. %{buildroot}" "%post -p <lua>" \
    'io.open("/run/qd-post", "w"):close() posix.sleep(2)' "%files" "/*" >$top/qdagent.spec
  rpmbuild -bb --quiet --define "_topdir $top" --define "_rpmfilename package.rpm" $top/qdagent.spec >/dev/null
  mv $top/RPMS/package.rpm "$2"
  rm -r $top
}

installed() {
  quiet rpm -U --force --oldpackage "$1"
  systemctl daemon-reload
  systemctl restart qdagent
  expect_agent active 7.2.1.4
  kept "$1" 7.2.1.4.rpm
  rm -f /run/qd-post
}
there() { rpm -q --queryformat '%{VERSION} ' qdagent; }
whole() { say "$1 "; }

runs() { [ -e "/run/qd-$1" ]; }
# shellcheck disable=SC2046
end() { kill -9 $(pgrep -x rpm); }

dies() { killed "$1" /qd/old.rpm /qd/new.rpm "${@:2}"; }

slow_rpm 7.2.1.4 /qd/old.rpm
slow_rpm 7.2.1.15 /qd/new.rpm
rm /usr/bin/dpkg

dies "rpm works on, and the timer comes" install
recovered 0 "7.2.1.15 " 7.2.1.15 wait_for_timer
dies "rpm dies with both versions in its database" install post
recovered 26 "7.2.1.4 " 7.2.1.4

make_agent_rpm 7.2.1.4 /qd/old.rpm
make_agent_rpm 7.2.1.15 /qd/new.rpm
killed_at_calls "${QD_POINTS:-3}" /qd/old.rpm /qd/new.rpm
finish
