#!/usr/bin/env bash
# Updates on a system without dpkg, with the real rpm and systemctl.

# shellcheck source=tests/e2e/expect.sh
. /qd/expect.sh || exit

make_packages() {
  local version
  for version in 7.1.5.2 7.2.1.4 7.2.1.15; do make_agent_rpm $version /qd/qdagent_$version.rpm; done
  mkdir -p /qd/x11/usr/share/qd-sample
  : >/qd/x11/usr/share/qd-sample/libX11.so.6
  make_rpm libX11 1 /qd/x11 /qd/x11.rpm
}

# installed VERSION: the agent runs in this version.
installed() {
  quiet rpm -U --force --oldpackage "/qd/qdagent_$1.rpm"
  systemctl daemon-reload
  systemctl restart qdagent
  expect_agent active "$1"
}

# The first time with a definition file, then with the built-in layout: the package under its fixed name.
plain_update() {
  begin "an update with rpm: $1"
  installed 7.2.1.4
  cp /qd/qdagent_7.2.1.15.rpm "/qd/$1"
  offer 7.2.1.15 "/qd/$1"
  [ "$1" != setup.rpm ] || rm $server/www/agent_setup_def.json
  update 7.2.1.4
  expect "status" "$status" 0
  expect "kind and command" "$(log_records | grep -E 'distrib is|install cmd')" "NFY distrib is [rpm]
NFY install cmd = rpm -U /tmp/$1"
  expect_commands_succeeded
  expect "installed version" "$(rpm -q --queryformat '%{VERSION}' qdagent)" 7.2.1.15
  expect_agent active 7.2.1.15
}

x11_packages="libXrender libxcb xcb-util xcb-util-keysyms xcb-util-image xcb-util-renderutil xcb-util-cursor
xcb-util-wm libxkbcommon libxkbcommon-x11 fontconfig freetype libXext libX11-xcb libSM libICE"

# x11_step RECORDS: an agent from before 7.2.0.0 is updated.
x11_step() {
  installed 7.1.5.2
  offer 7.2.1.15 /qd/qdagent_7.2.1.15.rpm
  rm -f /qd/installer.calls
  update 7.1.5.2
  expect "status" "$status" 0
  expect "records" "$(log_records | sed -n '/installX/,/Installed/p')" "NFY installXCBDeps ...
$1
NFY Agent Installed"
  expect_agent active 7.2.1.15
}

x11_cases() {
  printf '#!/bin/sh\necho "$@" >>/qd/installer.calls\n' >/usr/bin/dnf
  chmod 755 /usr/bin/dnf
  begin "without libX11 nothing is installed for it"
  x11_step "NFY X11 not found"
  expect "installer's calls" "$(cat /qd/installer.calls 2>/dev/null)" ""
  begin "libX11 is installed: the agent's X11 libraries are, too"
  quiet rpm -U /qd/x11.rpm
  x11_step "NFY Found x11
NFY Install xcb dependencies0"
  # shellcheck disable=SC2086
  expect "installer's arguments" "$(cat /qd/installer.calls)" "install -y $(say $x11_packages)"
}

make_packages
rm /usr/bin/dpkg
plain_update agent.rpm
plain_update setup.rpm
x11_cases
finish
